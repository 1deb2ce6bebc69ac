'use strict';
// Finds and services USB hub controllers through their vendor HID interface.

const path = require('node:path');
const errors = require('./lib/errors');
const { Hub, I2CTarget } = require('./lib/hub');
const { WorkerProcess, current } = require('./lib/process');
const { updateHubs } = require('./lib/several');
const { virtual, Machine } = require('./lib/virtual');

async function inProcess(name, args) {
  const process = new WorkerProcess();
  try {
    return await process.call(name, args);
  } finally {
    await process.close();
  }
}

/** All hubs of the family, each with what it runs. */
function listHubs() {
  return inProcess('listHubs', []);
}

/** The HID devices with exactly these ids, of the family or not. Opens no device. */
function listDevices(vid, pid) {
  return inProcess('listDevices', [vid, pid]);
}

/** From now on uses that file as the library; without one, the one of the package or the system. */
function useLibrary(file) {
  current.files = file === undefined ? [] : [file];
  current.isVirtual = file !== undefined && path.basename(path.dirname(file)) === 'virtual';
}

const {
  QzHidError, PermissionDenied, Refused, UpdateFailed, LibraryError, NoSuchHub, WrongUse, HubClosed, HubLost,
  InLoader, RequestFailed,
} = errors;

module.exports = {
  Hub, I2CTarget, Machine, listHubs, listDevices, updateHubs, useLibrary, virtual,
  QzHidError, PermissionDenied, Refused, UpdateFailed, LibraryError, NoSuchHub, WrongUse, HubClosed, HubLost,
  InLoader, RequestFailed,
};
