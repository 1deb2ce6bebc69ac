'use strict';
// One process at a time writes the hub at a port, of this package or qzhid, of any user.

const crypto = require('node:crypto');
const path = require('node:path');
const koffi = require('koffi');
const { Refused } = require('./errors');

/** The name of the lock, which qzhid uses, too: the system limits the length and the letters of names. */
function lockName(location, isVirtual) {
  // Virtual hubs are different ones in each scenario, and without one in each process.
  const scenario = process.env.QZ_VIRTUAL_HUB || String(process.pid);
  const whole = isVirtual
    ? `${path.isAbsolute(scenario) ? scenario : `${process.cwd()}/${scenario}`}\n${location}` : location;
  return `qzhid-${crypto.createHash('sha256').update(whole).digest('hex')}`;
}

/** Holds a name without a file: all users share these names, and nothing of them is left. Returns what releases
 * it; nothing while another process holds it. */
function holdOnLinux(name) {
  const EADDRINUSE = 98;
  const [AF_UNIX, SOCK_DGRAM, SOCK_CLOEXEC] = [1, 2, 0o2000000];
  const system = koffi.load('libc.so.6');
  const socket = system.func('socket', 'int', ['int', 'int', 'int'])(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const close = () => system.func('close', 'int', ['int'])(socket);
  const address = Buffer.concat([Buffer.from([AF_UNIX, 0, 0]), Buffer.from(name)]);
  const status = system.func('bind', 'int', ['int', 'void *', 'uint32_t'])(socket, address, address.length);
  // A system without such sockets has no lock; that is no reason not to write.
  if (status === 0 || koffi.errno() !== EADDRINUSE) return close;
  close();
  return undefined;
}

function holdOnWindows(name) {
  const [WAIT_OBJECT_0, WAIT_ABANDONED] = [0, 0x80];
  const system = koffi.load('kernel32.dll');
  const mutex = system.func('CreateMutexA', 'void *', ['void *', 'int', 'str'])(null, 0, `Global\\${name}`);
  if (!mutex) return undefined; // another user's
  const close = () => system.func('CloseHandle', 'int', ['void *'])(mutex);
  const result = system.func('WaitForSingleObject', 'uint32_t', ['void *', 'uint32_t'])(mutex, 0);
  if (result === WAIT_OBJECT_0 || result === WAIT_ABANDONED) return close;
  close();
  return undefined;
}

/** Does the work while no other process writes the hub. Throws Refused when one does. */
function withPortLock(location, isVirtual, hub, work) {
  const name = lockName(location, isVirtual);
  const release = process.platform === 'win32' ? holdOnWindows(name) : holdOnLinux(name);
  if (!release) {
    throw new Refused('another process is writing the hub', 'wait until that has ended and try again', { hub });
  }
  try {
    return work();
  } finally {
    release();
  }
}

module.exports = { withPortLock };
