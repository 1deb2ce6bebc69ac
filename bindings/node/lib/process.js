'use strict';
// A process of its own, in which the library works: calls are promises, and the event loop keeps turning.

const { fork } = require('node:child_process');
const path = require('node:path');
const { HubClosed, HubLost, fromMessage, FIND_HUB } = require('./errors');

/** What new processes use, until it is changed. */
const current = { files: [], isVirtual: false, environment: {} };

class WorkerProcess {
  constructor({ log, logLevel = 0 } = {}) {
    const settings = { ...current, log: log && path.resolve(log), logLevel };
    this.child = fork(path.join(__dirname, 'worker.js'), [JSON.stringify(settings)], {
      env: { ...process.env, ...current.environment },
      execArgv: [],
      serialization: 'advanced', // keeps bytes
      stdio: ['ignore', 'ignore', 'inherit', 'ipc'],
    });
    this.pending = undefined; // the call under way
    this.last = Promise.resolve();
    this.isOpen = true;
    this.ending = 'the hub is not open';
    this.child.on('message', (message) => this.take(message));
    this.child.on('error', (error) => this.end(error.message));
    this.child.on('exit', (code, signal) => this.end(signal ?? `exit status ${code}`));
    this.idle();
  }

  /** Calls run one after another; what `progress` throws, the call throws when it is done. */
  call(name, args, progress) {
    if (!this.isOpen) return Promise.reject(new HubClosed(this.ending, 'open it again'));
    const done = this.last.then(() => this.send(name, args, progress));
    this.last = done.catch(() => {});
    return done;
  }

  send(name, args, progress) {
    if (!this.isOpen) throw new HubClosed(this.ending, 'open it again');
    return new Promise((resolve, reject) => {
      this.pending = { resolve, reject, progress, thrown: undefined };
      this.child.ref();
      this.child.channel?.ref();
      this.child.send({ name, args }, (error) => error && this.end(error.message));
    });
  }

  take(message) {
    const call = this.pending;
    if (!call) return;
    if (message.percent !== undefined) {
      this.show(call, message.percent);
      return;
    }
    this.pending = undefined;
    this.idle();
    if (message.error) {
      const error = fromMessage(message.error);
      if (call.thrown) error.cause = call.thrown.error;
      call.reject(error);
    } else if (call.thrown) {
      call.reject(call.thrown.error);
    } else {
      call.resolve(message.result);
    }
  }

  show(call, percent) {
    if (!call.progress || call.thrown) return;
    try {
      call.progress(percent);
    } catch (error) {
      call.thrown = { error };
    }
  }

  /** This process may end when it waits for nothing else. */
  idle() {
    this.child.unref();
    this.child.channel?.unref();
  }

  /** The process is gone. */
  end(reason) {
    if (this.isOpen) this.ending = `the process that used the hub has ended (${reason})`;
    this.isOpen = false;
    this.pending?.reject(new HubLost(`the process that used the hub died (${reason}), and the hub's state is unknown`,
      FIND_HUB));
    this.pending = undefined;
  }

  /** Ends it after the calls that are under way. */
  async close() {
    if (!this.isOpen) return;
    const ended = new Promise((resolve) => {
      this.child.once('exit', resolve);
    });
    await this.last;
    if (!this.isOpen) return;
    this.isOpen = false;
    this.child.ref();
    this.child.disconnect();
    await ended;
  }
}

module.exports = { WorkerProcess, current };
