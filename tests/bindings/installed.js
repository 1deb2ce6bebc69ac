'use strict';
// installed.js IMAGE: what an installed package does, on virtual hubs.
const { Hub, PermissionDenied, virtual } = require('qzhidapi');

const image = process.argv[2];
const hub = { name: 'hub', port: '3.1' };
const loss = { on: 'request', request: '40/C8', nth: 9, action: 'power_loss', return_ms: 0 };
const closed = { on: 'call', service: 'OpenHidDevice', device: 'hub', count: 0, action: 'fail', code: 13 };

async function withHub(scenario, work) {
  await virtual(scenario, async () => {
    const open = await Hub.open();
    await work(open);
    await open.close();
  });
}

async function main() {
  const steps = [];
  await withHub({ devices: [hub] }, async (open) => {
    const result = await open.update(image, { progress: (percent) => steps.push(percent) });
    console.log(`updated ${result.before} to ${result.runs}, progress ${steps[0]} to ${steps[steps.length - 1]}`);
  });
  await withHub({ devices: [{ ...hub, image: { cut_after: 4096 } }] }, async (open) => {
    const result = await open.recover(image);
    console.log(`recovered ${result.before} to ${result.runs}`);
  });
  await withHub({ devices: [hub], faults: [loss] }, async (open) => {
    const result = await open.update(image);
    console.log(`interrupted, then ${result.outcome} with ${result.retries} retry`);
  });
  await withHub({ devices: [hub], faults: [closed] }, () => {}).catch((error) => {
    if (!(error instanceof PermissionDenied)) throw error;
    console.log(`PermissionDenied for hub ${error.hub}: ${error.what}`);
  });
}
main();
