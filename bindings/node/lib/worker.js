'use strict';
// The process that serves one hub or list: the library works, and blocks, here. It takes calls as messages and
// answers each; while it updates a hub it sends the progress.

const { candidates, logTo, open } = require('./library');
const { toMessage, WrongUse } = require('./errors');
const { attached, devices, summarise } = require('./hubs');
const { OpenHub } = require('./open_hub');

const settings = JSON.parse(process.argv[2]);
let library;
let hub;

// The hub is written to the end, also when the other process has ended or the terminal wants to end both.
for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) process.on(signal, () => {});

function send(message) {
  if (process.connected) process.send(message, () => {});
}

function load() {
  if (library) return library;
  library = open(settings.files.length > 0 ? settings.files : candidates(settings.isVirtual));
  if (settings.log) logTo(library, settings.log, settings.logLevel);
  return library;
}

const calls = {
  listHubs: () => attached(load()).map((found) => summarise(library, found)),
  listDevices: (vid, pid) => devices(load(), vid, pid),
  open(selector) {
    hub = new OpenHub(load(), settings.isVirtual, selector);
    return hub.info;
  },
};

function answer({ name, args }) {
  const report = (percent) => send({ percent });
  try {
    if (calls[name]) return send({ result: calls[name](...args) });
    if (!hub) throw new WrongUse('the hub is not open', 'open it first');
    return send({ result: hub[name](...args, report) });
  } catch (error) {
    return send({ error: toMessage(error) });
  }
}

process.on('message', answer);
process.on('disconnect', () => {
  hub?.close();
  process.exit();
});
