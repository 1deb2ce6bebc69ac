'use strict';
// Why a call ended without doing its work.

class QzHidError extends Error {
  constructor(what, remedy = '', { hub = '', runs = null } = {}) {
    super((hub ? `hub ${hub}: ` : '') + what + (remedy ? `; ${remedy}` : ''));
    this.name = this.constructor.name;
    this.what = what; // what failed
    this.remedy = remedy; // what to do next
    this.hub = hub; // as messages name it; empty where none is concerned
    this.runs = runs; // "2.10" or "loader"; null when that is not known
  }

  get outcome() {
    return 'failed';
  }
}

class RefusedOutcome extends QzHidError {
  get outcome() {
    return 'refused';
  }
}

class PermissionDenied extends RefusedOutcome {}
class Refused extends RefusedOutcome {}
class UpdateFailed extends QzHidError {}
class LibraryError extends QzHidError {}
class NoSuchHub extends QzHidError {}
class WrongUse extends QzHidError {}
class HubClosed extends WrongUse {}

class HubLost extends QzHidError {
  get outcome() {
    return 'lost';
  }
}

class InLoader extends QzHidError {
  get outcome() {
    return 'loader';
  }
}

class RequestFailed extends QzHidError {
  constructor(what, remedy, more) {
    super(what, remedy, more);
    this.status = more.status; // the library's result
  }
}

const kinds = {
  QzHidError, PermissionDenied, Refused, UpdateFailed, LibraryError, NoSuchHub, WrongUse, HubClosed, HubLost,
  InLoader, RequestFailed, RangeError, TypeError,
};

/** An error as a message between processes, and back. */
function toMessage(error) {
  const { what, remedy, hub, runs, status } = error;
  return { kind: error.constructor.name, text: error.message, what, remedy, hub, runs, status };
}

function fromMessage(message) {
  const Kind = kinds[message.kind];
  if (message.what === undefined) return new (Kind ?? Error)(message.text);
  return new Kind(message.what, message.remedy, message);
}

module.exports = {
  ...kinds,
  toMessage,
  fromMessage,
  // What to do about it, where several places say so.
  PLUG_IN_AGAIN: 'unplug it, plug it in again and try again',
  FIND_HUB: 'unplug it, plug it in again, and call recover() if it is in its loader',
  RECOVER: 'call recover() with an image for it',
};
