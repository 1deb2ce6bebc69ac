'use strict';
// Writing an image to one hub, and trying again when that fails.

const {
  HubLost, InLoader, QzHidError, Refused, UpdateFailed, FIND_HUB, PLUG_IN_AGAIN, RECOVER,
} = require('./errors');
const {
  attached, label, notOpenable, readState, runningVersion, versionText, withHandle,
} = require('./hubs');
const { identify } = require('./image');
const { narrow } = require('./library');

const BETWEEN_LISTS = 100;

function sleep(milliseconds) {
  Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, milliseconds);
}

function idText(id) {
  return id.toString(16).toUpperCase().padStart(4, '0');
}

/** Whether the hub is to be written; not when it runs the image. Throws Refused or InLoader. */
function check(hub, state, image, { force, allowOlder, recover, takesLoader }) {
  const about = { hub: label(hub), runs: state.runs };
  const refuse = (what, remedy) => {
    throw new Refused(what, remedy, about);
  };
  if (image.vid !== state.vid) {
    refuse(`the image is for vendor ${idText(image.vid)}, the hub is of vendor ${idText(state.vid)}`,
      'use an image for this hub');
  }
  if (state.version === null) { // a loader may have a product id of its own, so only the vendor counts
    if (recover || takesLoader) return true;
    throw new InLoader('the hub is in its loader', RECOVER, about);
  }
  if (image.pid !== state.pid && !force) {
    refuse(`the image is for product ${idText(image.pid)}, the hub is product ${idText(state.pid)}`,
      'use an image for this hub, or force: true to write it anyway');
  }
  if (image.version === state.version && !force) return false;
  if (recover) {
    refuse(`the hub runs its firmware ${state.runs}`, 'nothing needs to be recovered; update() writes another version');
  }
  if (image.version < state.version && !allowOlder) {
    refuse(`the hub runs ${state.runs}, which is newer than the image's ${versionText(image.version)}`,
      'use a newer image, or allowOlder: true to write it anyway');
  }
  return true;
}

/** Writes the image in the file `copy` to the hub at that location. `report` is called with each percentage. */
class Writer {
  constructor(library, location, copy, options, report) {
    this.library = library;
    this.location = location;
    this.copy = copy;
    this.options = options;
    this.report = report;
  }

  run(name) {
    let { hub, state } = this.look(name, '');
    const image = withHandle(this.library, hub, (handle) => identify(this.library, handle, this.copy));
    const before = state.runs;
    if (!check(hub, state, image, this.options)) return { outcome: 'current', before, runs: before, retries: 0 };
    let trouble = '';
    for (let retries = 0; retries <= this.options.retries; ++retries) {
      try {
        const runs = withHandle(this.library, hub, (handle) => this.write(handle, image));
        return { outcome: 'updated', before, runs, retries };
      } catch (error) {
        if (!(error instanceof QzHidError)) throw error;
        trouble = error.what;
      }
      ({ hub, state } = this.look(label(hub), trouble));
      this.checkReturn(trouble, hub, state, image);
      // The hub may have come back only after the library had stopped waiting for it.
      if (state.version === image.version && before !== state.runs) {
        return { outcome: 'updated', before, runs: state.runs, retries };
      }
    }
    const about = { hub: label(hub), runs: state.runs };
    if (state.version === null) throw new InLoader(`${trouble}, and the hub is in its loader`, RECOVER, about);
    throw new UpdateFailed(`${trouble}, and the hub runs ${state.runs}`,
      'try again; with the option log, the log says why it failed', about);
  }

  /** Returns what the hub runs then. */
  write(handle, image) {
    const { stayInLoader } = this.options;
    this.library.QZ_DllPassPara(stayInLoader ? 1 : 0);
    if (!this.library.QZ_UpdateDev(handle, narrow(this.copy), this.report)) throw new UpdateFailed('the update failed');
    const version = runningVersion(this.library, handle);
    if (!stayInLoader && version !== image.version) throw new UpdateFailed('the image is written, but not started');
    return version === null ? 'loader' : versionText(version);
  }

  /** Waits for the hub, also one that leaves while it is asked. */
  look(name, trouble) {
    const before = trouble ? `${trouble}, and ` : '';
    const remedy = trouble ? FIND_HUB : PLUG_IN_AGAIN;
    for (let looks = 0; looks < 2; ++looks) {
      const hub = this.await();
      if (!hub) {
        throw new HubLost(before + (trouble ? 'the hub has left the bus' : 'the hub is gone'), remedy, { hub: name });
      }
      if (!hub.openable) {
        const denied = notOpenable(hub);
        throw trouble ? new HubLost(`${trouble}, and ${denied.what}`, denied.remedy, { hub: denied.hub }) : denied;
      }
      try {
        return { hub, state: readState(this.library, hub) };
      } catch (error) {
        if (!(error instanceof HubLost)) throw error;
      }
    }
    throw new HubLost(`${before}the hub does not answer`, remedy, { hub: name });
  }

  /** The hub; nothing when it does not come back. */
  await() {
    const end = Date.now() + this.options.wait * 1000;
    for (;;) {
      const found = attached(this.library).filter((hub) => hub.location === this.location);
      const usable = found.filter((hub) => hub.openable);
      if (usable.length === 1) return usable[0];
      if (Date.now() >= end) return usable.length === 0 ? found[0] : undefined;
      sleep(BETWEEN_LISTS);
    }
  }

  /** Throws HubLost when the hub that is at the port after a try cannot be the one before. */
  checkReturn(trouble, hub, state, image) {
    try {
      check(hub, state, image, { force: this.options.force, allowOlder: true, takesLoader: true });
    } catch (error) {
      if (!(error instanceof Refused)) throw error;
      throw new HubLost(`${trouble}, and another hub has taken its place`, FIND_HUB, { hub: label(hub) });
    }
  }
}

module.exports = { Writer, sleep };
