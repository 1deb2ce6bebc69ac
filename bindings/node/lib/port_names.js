'use strict';
// The names that a user has given to ports: lines such as "bay 3 = 1-3.1" in qzhid/ports.conf.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { QzHidError } = require('./errors');

function configFolder() {
  if (process.platform === 'win32') return process.env.APPDATA ?? '';
  const chosen = process.env.XDG_CONFIG_HOME ?? '';
  return chosen.startsWith('/') ? chosen : path.join(os.homedir(), '.config');
}

const PORT_ID = /^(.+\/)?[0-9]+-[0-9]+(\.[0-9]+)*(:[0-9]+)?$/;
// What a selector means that is no name.
const OTHER = [PORT_ID, /^(0x)?[0-9a-f]{1,4}:(0x)?[0-9a-f]{1,4}$/i, /^instance:/i, /^usb.*\)$/i];

function whyNotUsable(names, name, port) {
  if (!name || !port) return 'is not NAME = PORT';
  if (/[\x00-\x1f\x7f]/.test(name)) return 'has a name with a control character';
  if (OTHER.some((form) => form.test(name))) return `has the name '${name}', which already means something else`;
  if (!PORT_ID.test(port)) return `has '${port}', which is not a port id`;
  if (names.has(name)) return `names '${name}' again`;
  const isNamed = [...names.values()].some((other) => other.toUpperCase() === port.toUpperCase());
  return isNamed ? `gives port ${port} another name` : '';
}

function unusable(file, why) {
  return new QzHidError(`the port names in ${file} are not usable: ${why}`,
    'correct the file; its lines look like this: bay 3 = 1-3.1');
}

/** Pairs of a name and a port id. Throws QzHidError when the user's file is not usable. */
function readPortNames() {
  const file = path.join(configFolder(), 'qzhid', 'ports.conf');
  if (!fs.existsSync(file)) return [];
  if (!fs.statSync(file).isFile()) throw unusable(file, 'it is not a regular file');
  let text;
  try {
    text = fs.readFileSync(file, 'utf8').replace(/^\uFEFF/, '');
  } catch (error) {
    throw unusable(file, error.code);
  }
  const names = new Map();
  text.split('\n').forEach((line, at) => {
    const content = line.split('#')[0].trim();
    if (!content) return;
    const equals = content.indexOf('=');
    const [name, port] = [content.slice(0, Math.max(equals, 0)).trim(), content.slice(equals + 1).trim()];
    const reason = whyNotUsable(names, name, port);
    if (reason) throw unusable(file, `line ${at + 1} ${reason}`);
    names.set(name, port);
  });
  // One port of a number may have a name of its own, and those of other controllers another.
  return [...names].sort(([, port], [, other]) => other.includes('/') - port.includes('/'));
}

module.exports = { readPortNames };
