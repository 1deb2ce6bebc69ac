'use strict';
// The library's file: where it is, and its functions.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const koffi = require('koffi');
const abi = require('./abi');
const { LibraryError, QzHidError } = require('./errors');

const FAILURES_ONLY = 3;
const isWindows = process.platform === 'win32';
const FILE = isWindows ? 'QzHidAPI.dll' : 'libQzHidAPI.so.1';

/** The files to try, in this order: those that came with this package, then that of the system. */
function candidates(isVirtual) {
  const folder = path.join(__dirname, '..', 'native', `${process.platform}-${process.arch}`);
  if (isVirtual) return [path.join(folder, 'virtual', FILE)];
  return isWindows ? [path.join(folder, FILE)] : [path.join(folder, FILE), FILE];
}

function load(files) {
  const reasons = [];
  for (const file of files) {
    try {
      return koffi.load(file);
    } catch (error) {
      reasons.push(error.message);
    }
  }
  throw new LibraryError(`the library cannot be loaded (${reasons.join('; ')})`,
    'install libqzhidapi1 or the package for this system, or call useLibrary(file)');
}

/** Loads a library. The functions have the names of the exports. */
function open(files) {
  const file = load(files);
  const progress = koffi.pointer(koffi.proto('progress', ...abi.progress));
  const library = {};
  for (const [name, [result, parameters]] of Object.entries(abi.functions)) {
    try {
      library[name] = file.func(name, result, parameters.map((type) => (type === 'progress' ? progress : type)));
    } catch {
      throw new LibraryError(`the library ${files.join(', ')} has no function ${name}`,
        "use the library of this package's version");
    }
  }
  if (isWindows) keepLogAway(library);
  return library;
}

/** On Windows, each new thread starts a log in the library's own folder, unless it has a path. */
function keepLogAway(library) {
  const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'qzhidapi-'));
  process.on('exit', () => fs.rmSync(folder, { recursive: true, force: true, maxRetries: 1 }));
  library.QZ_SetLogPath(narrow(path.join(folder, 'log.txt')));
  library.QZ_ConfigLog(0, FAILURES_ONLY);
}

function logTo(library, file, level) {
  if (library.QZ_SetLogPath(narrow(file)) !== 1) {
    throw new QzHidError(`the log ${file} cannot be written`,
      'name a file in a folder that you have permission to write');
  }
  library.QZ_ConfigLog(1, level);
}

/** A path as the library takes it. */
function narrow(file) {
  // eslint-disable-next-line no-control-regex
  if (isWindows && /[^\x00-\x7f]/.test(file)) {
    throw new LibraryError(`the library cannot take the path ${file}`, 'use a path of ASCII letters');
  }
  return Buffer.from(`${file}\0`);
}

/** The records of a listing function, as objects with the fields of a record: numbers, and lists of texts. */
function records(library, list, ...ids) {
  const [pointer, count] = [Buffer.alloc(8), Buffer.alloc(4)];
  if (!library[list](...ids, pointer, count)) return [];
  const address = pointer.readBigUInt64LE();
  const length = count.readUInt32LE();
  // A copy: the view is of the library's memory.
  const bytes = Buffer.from(new Uint8Array(koffi.view(address, length * abi.recordSize)));
  library.QZ_FreeDevList(address);
  return Array.from({ length }, (_, at) => record(bytes.subarray(at * abi.recordSize)));
}

function record(bytes) {
  const result = {};
  for (const [name, { size, count, offset }] of Object.entries(abi.recordFields)) {
    result[name] = size === 4 ? bytes.readUInt32LE(offset)
      : texts(bytes.subarray(offset, offset + size * count).toString('utf16le'));
  }
  return result;
}

/** Texts one after another, each zero-terminated, until an empty one. */
function texts(units) {
  const all = units.split('\0');
  return all.slice(0, all.indexOf(''));
}

module.exports = { candidates, open, logTo, narrow, records, isWindows };
