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

function unusable(file, why) {
  return new QzHidError(`the port names in ${file} are not usable: ${why}`,
    'correct the file; its lines look like this: bay 3 = 1-3.1');
}

/** Pairs of a name and a port id. Throws QzHidError when the user's file is not usable. */
function readPortNames() {
  const file = path.join(configFolder(), 'qzhid', 'ports.conf');
  if (!fs.existsSync(file)) return [];
  let text;
  try {
    text = fs.readFileSync(file, 'utf8');
  } catch (error) {
    throw unusable(file, error.code);
  }
  const names = new Map();
  text.split('\n').forEach((line, at) => {
    const content = line.split('#')[0].trim();
    if (!content) return;
    const equals = content.indexOf('=');
    const [name, port] = [content.slice(0, Math.max(equals, 0)).trim(), content.slice(equals + 1).trim()];
    if (!name || !port) throw unusable(file, `line ${at + 1} is not NAME = PORT`);
    if (names.has(name)) throw unusable(file, `line ${at + 1} names '${name}' again`);
    names.set(name, port);
  });
  return [...names];
}

module.exports = { readPortNames };
