'use strict';
// A hub that is open, as programs see it.

const path = require('node:path');
const { WorkerProcess } = require('./process');

const GPIO_LINES = 24;

function inRange(value, name, least, most) {
  if (!Number.isInteger(value) || value < least || value > most) {
    throw new RangeError(`${name} is ${value}, not ${least} to ${most}`);
  }
  return value;
}

function bytes(data) {
  if (!(data instanceof Uint8Array)) throw new TypeError('the data is no Uint8Array or Buffer');
  return Buffer.from(data);
}

/** A target behind a hub; usable while the hub is open. */
class I2CTarget {
  constructor(call, settings) {
    this.call = call;
    this.settings = settings;
  }

  async read(memory, length) {
    inRange(length, 'length', 0, 0x100000);
    inRange(memory, 'memory', 0, 0x100000000 - length);
    return Buffer.from(await this.call('i2cRead', [this.settings, memory, length]));
  }

  async readAt(address, length) {
    const where = bytes(address);
    inRange(where.length, 'the length of the address', 0, 5);
    return Buffer.from(await this.call('i2cReadAt', [this.settings, where, inRange(length, 'length', 1, 192)]));
  }

  async write(memory, data, page = 8) {
    const all = bytes(data);
    inRange(memory, 'memory', 0, 0x100000000 - all.length);
    await this.call('i2cWrite', [this.settings, memory, all, inRange(page, 'page', 1, 128)]);
  }
}

class Hub {
  #process;

  constructor(process, info) {
    this.#process = process;
    this.info = info;
  }

  /** Opens the hub that the selector names; without one, the only hub. */
  static async open(selector, options) {
    const process = new WorkerProcess(options);
    try {
      return new Hub(process, await process.call('open', [selector]));
    } catch (error) {
      await process.close();
      throw error;
    }
  }

  close() {
    return this.#process.close();
  }

  async state() {
    const { vid, pid, version, runs } = await this.#call('state', []);
    return { vid, pid, version: version === null ? null : runs, runs };
  }

  async version() {
    return (await this.state()).version;
  }

  update(image, options = {}) {
    return this.#update(image, { ...options, recover: false });
  }

  recover(image, options = {}) {
    return this.#update(image, { ...options, recover: true, force: false, stayInLoader: false });
  }

  async #update(image, { progress, ...options }) {
    const whole = { retries: 2, wait: 30, ...options };
    inRange(whole.retries, 'retries', 0, 100);
    return this.#call('update', [path.resolve(image), whole], progress);
  }

  async gpioGet(line) {
    return this.#call('gpioGet', [inRange(line, 'line', 0, GPIO_LINES - 1)]);
  }

  async gpioDrive(line, level) {
    await this.#call('gpioDrive', [inRange(line, 'line', 0, GPIO_LINES - 1), inRange(level, 'level', 0, 1)]);
  }

  async gpioSet(number, level) {
    await this.#call('gpioSet', [inRange(number, 'number', 0, 0xffff), inRange(level, 'level', 0, 1)]);
  }

  i2c(target, { memoryBytes = 2, speed = 0 } = {}) {
    return new I2CTarget((name, args) => this.#call(name, args), [
      inRange(target, 'target', 1, 0xff), inRange(memoryBytes, 'memoryBytes', 0, 5), inRange(speed, 'speed', 0, 2)]);
  }

  async flashWrite(address, data) {
    await this.#call('flashWrite', [inRange(address, 'address', 0, 0x100000000 - data.length), bytes(data)]);
  }

  async flashStage(address, data) {
    await this.#call('flashStage', [inRange(address, 'address', 0, 0x100000000 - data.length), bytes(data)]);
  }

  async flashErase() {
    await this.#call('flashErase', []);
  }

  async flashStatus() {
    return this.#call('flashStatus', []);
  }

  async blockCommand(commands, address, offset = 0, data = Buffer.alloc(0)) {
    inRange(commands.length, 'the number of commands', 3, 3);
    inRange(data.length, 'the length of the data', 0, 54);
    await this.#call('blockCommand', [
      commands.map((command) => inRange(command, 'command', 0, 0xff)),
      inRange(address, 'address', 0, 0xffffffff), inRange(offset, 'offset', 0, 0xffffffff), bytes(data)]);
  }

  #call(name, args, progress) {
    return this.#process.call(name, args, progress);
  }
}

module.exports = { Hub, I2CTarget };
