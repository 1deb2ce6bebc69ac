'use strict';
// Several hubs at a time.

const { Hub } = require('./hub');
const { QzHidError } = require('./errors');

/** Updates hubs of listHubs(), also those in their loader, and returns the outcome for each. */
async function updateHubs(hubs, image, { jobs = 4, progress, ...options } = {}) {
  const waiting = [...hubs.entries()];
  const outcomes = [];
  let thrown;
  const show = (hub) => (percent) => {
    if (!progress || thrown) return;
    try {
      progress(hub, percent);
    } catch (error) {
      thrown = { error };
    }
  };
  const work = async () => {
    for (let next = waiting.shift(); next; next = waiting.shift()) {
      const [at, hub] = next;
      outcomes[at] = await updateOne(hub, image, { ...options, progress: show(hub) });
    }
  };
  await Promise.all(Array.from({ length: Math.max(1, jobs) }, work));
  if (thrown) throw thrown.error;
  return outcomes;
}

async function updateOne(info, image, options) {
  try {
    const hub = await Hub.open(info.location || info.portId);
    try {
      const result = await hub.update(image, { ...options, takesLoader: true });
      return { hub: info, ...result, error: null };
    } finally {
      await hub.close();
    }
  } catch (error) {
    if (!(error instanceof QzHidError)) throw error;
    return { hub: info, outcome: error.outcome, before: null, runs: error.runs, retries: 0, error };
  }
}

module.exports = { updateHubs };
