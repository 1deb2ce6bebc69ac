'use strict';
// Firmware image files.

const crypto = require('node:crypto');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { QzHidError, Refused } = require('./errors');
const { narrow } = require('./library');

const SHORTEST = 0x7fa8; // all ids and versions are before that
const LONGEST = 0x1000000; // larger than any flash
const SEAL = Buffer.from('VHUBSEAL');
const SEAL_AT = 0x7f80;

function refuse(file, why, remedy = 'give the complete image file') {
  throw new Refused(`image ${file} ${why}`, remedy);
}

function crc32(crc, bytes) {
  let value = ~crc;
  for (const byte of bytes) {
    value ^= byte;
    for (let bit = 0; bit < 8; ++bit) value = (value >>> 1) ^ (value & 1 ? 0xedb88320 : 0);
  }
  return ~value >>> 0;
}

/** Of images that hold their own length and checksum, as those that qzhub makes. */
function isDamaged(data) {
  if (!data.subarray(SEAL_AT, SEAL_AT + SEAL.length).equals(SEAL)) return false;
  const length = data.readUInt32LE(SEAL_AT + 8);
  if (length < SHORTEST || length > data.length) return true;
  const checksum = crc32(crc32(0, data.subarray(0, SEAL_AT + 12)), data.subarray(SEAL_AT + 16, length));
  return checksum !== data.readUInt32LE(SEAL_AT + 12);
}

function contents(file) {
  let found;
  try {
    found = fs.statSync(file, { throwIfNoEntry: false });
  } catch (error) {
    refuse(file, `cannot be read: ${error.code}`);
  }
  if (!found) refuse(file, 'does not exist');
  if (!found.isFile()) refuse(file, 'is not a regular file'); // anything else may have no end
  if (found.size < SHORTEST) refuse(file, `is too short: ${found.size} bytes of at least ${SHORTEST}`);
  if (found.size > LONGEST) refuse(file, `is too long: ${found.size} bytes of at most ${LONGEST}`);
  try {
    return fs.readFileSync(file);
  } catch (error) {
    return refuse(file, `cannot be read: ${error.code}`);
  }
}

/** The contents of an image file. Throws Refused when it is not one, or not the wanted one. */
function readImage(file, { sha256, flashSize } = {}) {
  if (sha256 !== undefined && !/^[0-9a-f]{64}$/i.test(sha256)) {
    throw new RangeError(`'${sha256}' is not 64 hexadecimal digits`);
  }
  const data = contents(file);
  if (data.length < SHORTEST || isDamaged(data)) refuse(file, 'is damaged: its length or checksum is wrong');
  if (flashSize !== undefined && data.length > flashSize) {
    refuse(file, `is longer than the flash: ${data.length} bytes of at most ${flashSize}`,
      'use the image for this hub');
  }
  const digest = crypto.createHash('sha256').update(data).digest('hex');
  if (sha256 !== undefined && digest !== sha256.toLowerCase()) {
    refuse(file, `has the SHA-256 ${digest}`, `use the image that has ${sha256}`);
  }
  return data;
}

function noCopy(error) {
  return new QzHidError(`a private copy of the image cannot be made: ${error.code ?? error.message}`,
    'free some space in the temporary folder, or choose another one with TMPDIR');
}

/** Does the work with a file with that contents that nobody else can replace between the check and the
 * writing. */
function withPrivateCopy(data, work) {
  let folder;
  try {
    folder = fs.mkdtempSync(path.join(os.tmpdir(), 'qzhidapi-'));
  } catch (error) {
    throw noCopy(error);
  }
  const copy = path.join(folder, 'image.bin');
  try {
    try {
      fs.writeFileSync(copy, data);
    } catch (error) {
      throw noCopy(error);
    }
    return work(copy);
  } finally {
    fs.rmSync(folder, { recursive: true, force: true });
  }
}

/** What the image says; the handle is that of any hub. */
function identify(library, handle, copy) {
  const [vid, pid, version] = [Buffer.alloc(4), Buffer.alloc(4), Buffer.alloc(2)];
  if (!library.QZ_GetHidBinFileVIDPID(narrow(copy), vid, pid)
      || !library.QZ_ReadBinVersion(handle, narrow(copy), version)) {
    throw noCopy(new Error('it cannot be read'));
  }
  return { vid: vid.readUInt32LE(), pid: pid.readUInt32LE(), version: version.readUInt16LE() };
}

module.exports = { readImage, withPrivateCopy, identify };
