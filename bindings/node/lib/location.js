'use strict';
// Where a hub is plugged in: location paths, such as "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)", and the short
// port ids that are made of them.

/** Of "USB(3)": ["USB", "3"]. */
function step(text) {
  const found = /^([^(]*)\((.*)\)$/.exec(text);
  return found ? [found[1], found[2]] : [text, ''];
}

/** The port id of a location: the controller, and the port with its root hub, "1-3". Both are empty if it names
 * no USB port. */
function readPortId(location) {
  const steps = location.split('#').map(step);
  const root = steps.findIndex(([name]) => name === 'USBROOT');
  const nowhere = { controller: '', port: '' };
  if (root < 0 || !/^\d+$/.test(steps[root][1])) return nowhere;
  const before = steps.slice(0, root);
  if (before.length > 0 && before[0][0] === 'PCIROOT' && before[0][1] === '0') before.shift();
  let port = String(Number(steps[root][1]) + 1);
  let separator = '-';
  for (const [name, argument] of steps.slice(root + 1)) {
    if (name !== 'USB' && name !== 'USBMI') return nowhere;
    port += (name === 'USBMI' ? ':' : separator) + argument;
    if (name === 'USB') separator = '.';
  }
  return { controller: before.map(([, argument]) => argument).join('.'), port };
}

/** A port id with its controller. */
function whole({ controller, port }) {
  return controller ? `${controller}/${port}` : port;
}

/** Whether a text is one of the two forms of a port id. */
function isPortId(id, text) {
  const wanted = text.toUpperCase();
  return id.port !== '' && (wanted === id.port.toUpperCase() || wanted === whole(id).toUpperCase());
}

/** Whether `wanted` is the location, or a number of whole steps at its end. */
function isLocation(location, wanted) {
  const [all, end] = [location.toUpperCase(), wanted.toUpperCase()];
  return end !== '' && (all === end || all.endsWith(`#${end}`));
}

module.exports = { readPortId, whole, isPortId, isLocation };
