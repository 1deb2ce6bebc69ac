'use strict';
// Virtual hubs, for tests of programs.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { WrongUse } = require('./errors');
const { current } = require('./process');

/** The simulated computer that virtual hubs are attached to. */
class Machine {
  #control;

  constructor(scenario, control) {
    this.scenario = scenario;
    this.#control = control && path.resolve(path.dirname(scenario), control);
  }

  plug(name, port) {
    this.#add(`plug ${name}${port ? ` ${port}` : ''}`);
  }

  unplug(name) {
    this.#add(`unplug ${name}`);
  }

  powerLoss(name, milliseconds = 500) {
    this.#add(`power-loss ${name} ${milliseconds}`);
  }

  #add(line) {
    if (!this.#control) throw new WrongUse('the scenario names no control file', 'add the key control to it');
    fs.appendFileSync(this.#control, `${line}\n`);
  }
}

function machineOf(scenario, folder) {
  if (typeof scenario === 'string') {
    return new Machine(path.resolve(scenario), JSON.parse(fs.readFileSync(scenario, 'utf8')).control);
  }
  // Each hub has a process of its own, and so has each list: they share the flash in the state folder.
  const whole = { time: 'virtual', control: 'hands.txt', state_folder: '.', ...scenario };
  const file = path.join(folder, 'scenario.json');
  fs.writeFileSync(file, JSON.stringify(whole));
  return new Machine(file, whole.control);
}

/** While `work` runs, hubs that are listed and opened are those of the scenario: an object as
 * docs/virtual-hub.md describes it, or the path of such a file. */
async function virtual(scenario, work, { library } = {}) {
  const before = { ...current };
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'qzhidapi-'));
  try {
    const machine = machineOf(scenario, folder);
    Object.assign(current, {
      files: library ? [library] : [],
      isVirtual: true,
      environment: { QZ_VIRTUAL_HUB: machine.scenario },
    });
    return await work(machine);
  } finally {
    Object.assign(current, before);
    fs.rmSync(folder, { recursive: true, force: true });
  }
}

module.exports = { virtual, Machine };
