'use strict';
// A hub that is open, in the process that serves it. Its connection is made again when an update, a version or
// a list has ended it.

const os = require('node:os');
const { HubLost, QzHidError, RequestFailed, PLUG_IN_AGAIN } = require('./errors');
const { attached, label, pick, readState } = require('./hubs');
const { readImage, withPrivateCopy } = require('./image');
const { withPortLock } = require('./port_lock');
const { Writer, sleep } = require('./update');

const AT_ONCE = 128; // bytes in a request
const FLASH_BUSY = 1;
const FLASH_WAIT = 60000;
// An EEPROM does not acknowledge while it stores a page, which takes it some milliseconds.
const PAGE_TRIES = 20;
const BETWEEN_TRIES = 2;

function meaning(status) {
  if (status === 0xffffffff) return 'rejected by the library';
  const known = process.platform === 'win32'
    ? { 31: 'the hub or the target refused it', 1167: 'the hub left', 121: 'no answer in time' }
    : { 32: 'the hub or the target refused it', 19: 'the hub left', 71: 'the hub left', 110: 'no answer in time' };
  const name = Object.entries(os.constants.errno).find(([, number]) => number === status)?.[0];
  return known[status] ?? name ?? 'a system error';
}

class OpenHub {
  constructor(library, isVirtual, selector) {
    this.library = library;
    this.isVirtual = isVirtual;
    this.info = pick(library, selector);
    this.handle = null;
    this.connect(this.info);
  }

  close() {
    if (this.handle) this.library.QZ_CloseDev(this.handle);
    this.handle = null;
  }

  connect(hub) {
    this.handle = this.library.QZ_OpenHid(hub.instance);
    if (!this.handle) throw new HubLost('the hub does not answer', PLUG_IN_AGAIN, { hub: label(hub) });
  }

  /** The hub in a fresh list: its instance may have changed. */
  find() {
    const hub = attached(this.library).find((one) => one.location === this.info.location && one.openable);
    if (!hub) throw new HubLost('the hub is gone', 'plug it in again and try again', { hub: label(this.info) });
    return hub;
  }

  state() {
    this.close();
    return readState(this.library, this.find());
  }

  update(image, options, report) {
    const data = readImage(image, options);
    this.close();
    return withPrivateCopy(data, (copy) => withPortLock(
      this.info.location, this.isVirtual, label(this.info),
      () => new Writer(this.library, this.info.location, copy, options, report).run(label(this.info))));
  }

  /** Sends a request, whose result is a status. */
  request(what, send) {
    if (!this.handle) this.connect(this.find());
    const status = send(this.handle);
    if (status === 0) return;
    this.close();
    const hub = label(this.info);
    if (!attached(this.library).some((one) => one.location === this.info.location)) {
      throw new HubLost(`${what} failed, and the hub is gone`, 'plug it in again and try again', { hub });
    }
    throw new RequestFailed(`${what} failed with status ${status} (${meaning(status)})`,
      'check the address and that the hub runs its firmware', { status, hub });
  }

  gpioGet(line) {
    const level = Buffer.alloc(1);
    this.request('reading the line', (handle) => this.library.QZ_HidGPIOR(handle, line, level, 1));
    return level[0];
  }

  gpioDrive(line, level) {
    this.request('driving the line', (handle) => this.library.QZ_HidGPIOW(handle, line, level));
  }

  gpioSet(number, level) {
    this.request('setting the line', (handle) => (this.library.QZ_HidSetHubGPIO(handle, number, level) ? 0 : 1));
  }

  i2cRead(settings, memory, length) {
    const data = Buffer.alloc(length);
    for (let at = 0; at < length; at += AT_ONCE) {
      const part = Buffer.alloc(Math.min(AT_ONCE, length - at));
      this.request('the I2C read', (handle) => this.library.QZ_HidI2CConfig(handle, ...settings)
        || this.library.QZ_HidI2CRead(handle, memory + at, part, part.length));
      part.copy(data, at);
    }
    return data;
  }

  i2cReadAt(settings, address, length) {
    const data = Buffer.alloc(length);
    const where = Buffer.concat([address, Buffer.alloc(1)]); // not null
    this.request('the I2C read', (handle) => this.library.QZ_HidI2CConfig(handle, ...settings)
      || this.library.QZ_HidI2CRead2(handle, where, address.length, data, length));
    return data;
  }

  i2cWrite(settings, memory, data, page) {
    for (let at = 0; at < data.length;) {
      const part = Buffer.from(data.subarray(at, at + page - ((memory + at) % page)));
      this.request(`the I2C write after ${at} written bytes`, (handle) => this.library.QZ_HidI2CConfig(
        handle, ...settings) || this.writePage(handle, memory + at, part, at > 0));
      at += part.length;
    }
  }

  writePage(handle, memory, part, waits) {
    let status = 0;
    for (let tries = waits ? PAGE_TRIES : 1; tries > 0; --tries) {
      status = this.library.QZ_HidI2CWrite(handle, memory, part, part.length);
      if (status === 0) break;
      sleep(BETWEEN_TRIES);
    }
    return status;
  }

  flashWrite(address, data) {
    this.send('QZ_HidI2CBlockWriteFlash', address, data);
  }

  flashStage(address, data) {
    this.send('QZ_Stage_Flash', address, data);
  }

  send(name, address, data) {
    for (let at = 0; at < data.length; at += AT_ONCE) {
      const part = Buffer.from(data.subarray(at, at + AT_ONCE));
      this.awaitFlash();
      this.request(`the transfer after ${at} bytes`,
        (handle) => this.library[name](handle, address + at, part, part.length));
    }
    this.awaitFlash();
  }

  flashErase() {
    this.awaitFlash();
    this.request('erasing the flash', (handle) => this.library.QZ_HidI2CBlockEraseFlash(handle));
    this.awaitFlash();
  }

  flashStatus() {
    const status = Buffer.alloc(1);
    this.request("reading the flash's status", (handle) => this.library.QZ_HidI2CBlockStatus(handle, status));
    return status[0];
  }

  awaitFlash() {
    const end = Date.now() + FLASH_WAIT;
    while (this.flashStatus() === FLASH_BUSY) {
      if (Date.now() > end) {
        throw new QzHidError('the flash is still busy after a minute', 'look at flashStatus() and try again',
          { hub: label(this.info) });
      }
      sleep(1);
    }
  }

  blockCommand([first, second, third], address, offset, data) {
    this.request('the block command', (handle) => this.library.QZ_MST_HidI2CBlock(
      handle, first, second, third, address, offset, Buffer.concat([data, Buffer.alloc(1)]), data.length));
  }
}

module.exports = { OpenHub };
