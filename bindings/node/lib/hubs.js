'use strict';
// The hubs that are attached.

const { HubLost, NoSuchHub, PermissionDenied, QzHidError, WrongUse, PLUG_IN_AGAIN } = require('./errors');
const { records } = require('./library');
const { readPortId, whole, isPortId, isLocation } = require('./location');
const { readPortNames } = require('./port_names');

const FAMILY_VENDOR = 0x2e7c;

/** A version as text: 0x0210 is "2.10". */
function versionText(version) {
  return `${(version >> 8).toString(16)}.${(version & 0xff).toString(16).padStart(2, '0')}`;
}

function hubOf(record) {
  return {
    portId: '', name: '', vid: parseInt(record.VID[0] ?? '0', 16), pid: parseInt(record.PID[0] ?? '0', 16),
    location: record.LocationPath[0] ?? '', locations: record.LocationPath, hardwareIds: record.HwID,
    instance: record.dwInst, level: record.Level, port: record.Port, openable: true, state: 'unknown', version: null,
  };
}

/** As messages name it: "1-3.1 (bay 3)". */
function label(hub) {
  return hub.portId + (hub.name ? ` (${hub.name})` : '');
}

function devicesOf(library, vid, pid) {
  // The library looks for both ids anywhere in the device's id, so the vendor's is found twice.
  return records(library, 'QZ_ListAllHidDevByVIDPID', vid, pid ?? vid).map(hubOf)
    .filter((device) => device.vid === vid && (pid === undefined || device.pid === pid));
}

function areOnOnePort(hub, other) {
  const [id, otherId] = [readPortId(hub.location), readPortId(other.location)];
  const device = (one) => whole(one).split(':')[0];
  return hub.instance === other.instance || (id.port !== '' && device(id) === device(otherId));
}

function named(hubs) {
  const names = hubs.length > 0 ? readPortNames() : [];
  const ids = hubs.map((hub) => readPortId(hub.location));
  const isOnSeveral = new Set(ids.map((id) => id.controller)).size > 1;
  return hubs.map((hub, at) => ({
    ...hub,
    portId: (isOnSeveral ? whole(ids[at]) : ids[at].port) || `instance:${hub.instance}`,
    name: names.find(([, port]) => isPortId(ids[at], port))?.[0] ?? '',
  }));
}

/** The HID devices with exactly these ids, of the family or not. */
function devices(library, vid, pid) {
  return named(devicesOf(library, vid, pid));
}

/** All hubs of the family; none is asked what it runs. Releases the connection. */
function attached(library) {
  // This list opens no device, so it also holds hubs that this user has no permission to open. It comes first,
  // because instances are good for the last list.
  const closed = devicesOf(library, FAMILY_VENDOR).map((hub) => ({ ...hub, openable: false }));
  const hubs = [];
  // Of a device whose interface has several collections, one is enough.
  for (const hub of records(library, 'QZ_ListAllHidDev').map(hubOf)) {
    if (!hub.location || hubs.every((other) => other.location !== hub.location)) hubs.push(hub);
  }
  return named([...hubs, ...closed.filter((hub) => !hubs.some((other) => areOnOnePort(hub, other)))]);
}

function isId(number, text) {
  return /^[0-9a-f]{1,4}$/i.test(text) && parseInt(text, 16) === number;
}

/** Whether the selector names the hub: its port id, its name, its location or whole steps at the end of it,
 * "VID:PID", "vid=VID" or "pid=PID". Letter case counts in names only. */
function isNamed(hub, selector) {
  if (selector.toLowerCase() === `instance:${hub.instance}`) return true; // of a device without a port
  const filter = /^(vid|pid)=(.*)$/i.exec(selector);
  if (filter) return isId(hub[filter[1].toLowerCase()], filter[2]);
  const [vid, pid, ...rest] = selector.split(':');
  return selector !== '' && (selector === hub.name || isPortId(readPortId(hub.location), selector)
    || isLocation(hub.location, selector)
    || (pid !== undefined && rest.length === 0 && isId(hub.vid, vid) && isId(hub.pid, pid)));
}

function notOpenable(hub) {
  return new PermissionDenied('the hub cannot be opened',
    'get permission for it (on Linux: the udev rule) or end the program that has it open', { hub: label(hub) });
}

/** The hub that the selector names; without one, the only hub that is attached. */
function pick(library, selector) {
  const hubs = attached(library);
  if (hubs.length === 0) throw new NoSuchHub('no hub is attached', 'plug one in');
  const matching = selector === undefined ? hubs : hubs.filter((hub) => isNamed(hub, selector));
  if (matching.length === 0) {
    throw new NoSuchHub(`no hub matches '${selector}'`, `attached are: ${hubs.map(label).join(', ')}`);
  }
  if (matching.length > 1) {
    throw new WrongUse(`several hubs ${selector === undefined ? 'are attached' : `match '${selector}'`}`,
      `choose one of: ${matching.map(label).join(', ')}`);
  }
  if (!matching[0].openable) throw notOpenable(matching[0]);
  return matching[0];
}

/** Does the work on a handle of a hub of the last list. */
function withHandle(library, hub, work) {
  const handle = library.QZ_OpenHid(hub.instance);
  if (!handle) throw new HubLost('the hub does not answer', PLUG_IN_AGAIN, { hub: label(hub) });
  try {
    return work(handle);
  } finally {
    library.QZ_CloseDev(handle);
  }
}

/** The version that the hub of a handle runs; null in the loader. */
function runningVersion(library, handle) {
  const version = Buffer.alloc(2);
  return library.QZ_ReadDevVersion(handle, version) ? version.readUInt16LE() : null;
}

/** Ids and version of a hub of the last list. Releases the connection. */
function readState(library, hub) {
  // A hub that answers and has no version is in its loader. But it may have left between the two answers, so
  // that counts only when it is so again.
  let state = { version: null };
  for (let looks = 0; looks < 2 && state.version === null; ++looks) {
    const [vid, pid] = [Buffer.alloc(4), Buffer.alloc(4)];
    if (!library.QZ_GetHubVIDPIDFromHidDevice(hub.instance, vid, pid)) {
      throw new HubLost('the hub does not answer', PLUG_IN_AGAIN, { hub: label(hub) });
    }
    const version = withHandle(library, hub, (handle) => runningVersion(library, handle));
    state = { vid: vid.readUInt32LE(), pid: pid.readUInt32LE(), version };
  }
  return { ...state, runs: state.version === null ? 'loader' : versionText(state.version) };
}

/** The same hub with what it runs. */
function summarise(library, hub) {
  if (!hub.openable) return { ...hub, state: 'no permission' };
  try {
    const { version, runs } = readState(library, hub);
    return version === null ? { ...hub, state: 'loader' } : { ...hub, state: 'firmware', version: runs };
  } catch (error) {
    if (!(error instanceof QzHidError)) throw error;
    return { ...hub, state: 'silent' };
  }
}

module.exports = {
  versionText, label, devices, attached, notOpenable, pick, withHandle, runningVersion, readState, summarise,
};
