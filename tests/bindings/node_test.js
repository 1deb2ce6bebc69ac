'use strict';
// The package qzhidapi for Node on the virtual library. Environment: QZ_LIBRARY, QZHID and QZHUB.

const assert = require('node:assert/strict');
const crypto = require('node:crypto');
const { execFile, execFileSync, spawn } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { test } = require('node:test');
const { promisify } = require('node:util');
const PACKAGE = path.resolve(__dirname, '../../bindings/node');
const qz = require(PACKAGE);

const { QZ_LIBRARY: library, QZHID, QZHUB } = process.env;
const LOCATION = 'PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)#USB(1)';
const work = fs.mkdtempSync(path.join(os.tmpdir(), 'qzhidapi-test-'));
process.on('exit', () => fs.rmSync(work, { recursive: true }));
process.env.XDG_CONFIG_HOME = path.join(work, 'config');

function makeImage(name, ...options) {
  const file = path.join(work, `${name}.bin`);
  const version = options.includes('--version') ? [] : ['--version', '0210'];
  execFileSync(QZHUB, ['image', '--out', file, '--size', '32680', ...version, ...options]);
  return file;
}
const image = {
  new: makeImage('new'),
  vendor: makeImage('vendor', '--vid', '2E7D'),
  product: makeImage('product', '--pid', '0820'),
  older: makeImage('older', '--version', '0101'),
  same: makeImage('same', '--version', '0102'),
};

const hub = (members = {}) => ({ name: 'hub', port: '3.1', ...members });
const loss = (request, members = {}) => ({ on: 'request', request, action: 'power_loss', return_ms: 0, ...members });
const notOpenable = {
  on: 'call', service: 'OpenHidDevice', device: 'hub', count: 0, action: 'fail', code: os.constants.errno.EACCES,
};

/** Runs a test on a machine with these devices and faults. */
function onMachine(name, devices, faults, run, members = {}) {
  test(name, () => qz.virtual({ devices, faults, ...members }, run, { library }));
}

/** Does the work with an open hub. */
async function withHub(run, ...selector) {
  const open = await qz.Hub.open(...selector);
  try {
    return await run(open);
  } finally {
    await open.close();
  }
}

/** What a promise is rejected with, which is exactly of that kind. */
async function failure(kind, promise) {
  const error = await promise.then((result) => assert.fail(`it returned ${JSON.stringify(result)}`), (one) => one);
  assert.equal(error.constructor.name, kind.name, error.stack);
  return error;
}

onMachine('a list says where each hub is and what it runs', [
  { name: 'a', port: '3.1' }, { name: 'b', port: '4', running: 'rom', rom: { pid: '0x0810' } },
  { name: 'mouse', kind: 'other', port: '5', vid: '0x045E', pid: '0x1400' }], [], async () => {
  const hubs = await qz.listHubs();
  assert.deepEqual(hubs.map((one) => [one.portId, one.state, one.version, one.vid, one.pid]),
    [['1-3.1', 'firmware', '1.02', 0x2e7c, 0x0818], ['1-4', 'loader', null, 0x2e7c, 0x0810]]);
  assert.deepEqual([hubs[0].location, hubs[0].level, hubs[0].port], [LOCATION, 2, 1]);
  assert.equal(hubs[0].hardwareIds[0], 'HID\\VID_2E7C&PID_0818&REV_0100');
  assert.deepEqual((await qz.listDevices(0x045e, 0x1400)).map((one) => one.portId), ['1-5']);
  assert.deepEqual(await qz.listDevices(0x045e, 0x0400), []);
});

onMachine('hubs that cannot be opened or do not answer are listed as such', [
  { name: 'hub', port: '1' }, { name: 'silent', port: '2' }, { name: 'good', port: '3' }],
[notOpenable, { on: 'exchange', device: 'silent', count: 0, action: 'stall' }], async () => {
  assert.deepEqual((await qz.listHubs()).map((one) => [one.portId, one.state]),
    [['1-2', 'silent'], ['1-3', 'firmware'], ['1-1', 'no permission']]);
  const error = await failure(qz.PermissionDenied, qz.Hub.open('1-1'));
  assert.deepEqual([error.what, error.hub, error.outcome], ['the hub cannot be opened', '1-1', 'refused']);
  assert.match(error.remedy, /udev rule/);
});

onMachine('without a hub the list is empty', [], [], async () => {
  assert.deepEqual(await qz.listHubs(), []);
  await failure(qz.NoSuchHub, qz.Hub.open());
});

onMachine('of a hub with several collections one is listed', [hub({ part: 'Col01', siblings: ['Col02'] })], [],
  async () => assert.equal((await qz.listHubs()).length, 1));

onMachine('port ids begin with the controller when there are several', [
  { name: 'a', port: '3.1' }, { name: 'b', port: '2-3.1' }], [], async () => {
  assert.deepEqual((await qz.listHubs()).map((one) => one.portId), ['1400/1-3.1', '1500/1-3.1']);
});

test('a hub is named by port id, name, location or ids', async () => {
  // The library is loaded in this process, which is faster.
  process.env.QZ_VIRTUAL_HUB = path.join(work, 'selectors.json');
  fs.writeFileSync(process.env.QZ_VIRTUAL_HUB, JSON.stringify({ time: 'virtual', devices: [
    { name: 'a', port: '3.1' }, { name: 'b', port: '2', image: { pid: '0x0820' } }, { name: 'c', port: '4.3.1' }] }));
  const loaded = require(path.join(PACKAGE, 'lib/library')).open([library]);
  const pick = async (selector) => require(path.join(PACKAGE, 'lib/hubs')).pick(loaded, selector);
  const names = path.join(work, 'config/qzhid/ports.conf');
  fs.mkdirSync(path.dirname(names), { recursive: true });
  fs.writeFileSync(names, '# ports\nbay 3 = 1-3.1\n\nother=1-7 # empty\n');
  for (const [selector, port] of [
    ['1-3.1', '1-3.1'], ['1400/1-4.3.1', '1-4.3.1'], ['bay 3', '1-3.1'], [LOCATION.toLowerCase(), '1-3.1'],
    ['usbroot(0)#usb(2)', '1-2'], ['2e7c:820', '1-2'], ['PID=0820', '1-2']]) {
    assert.equal((await pick(selector)).portId, port, selector);
  }
  for (const selector of ['', '3.1', '1-3', 'SB(2)', 'Bay 3', 'other', '2E7C:0821', '2E7C', 'pid=', 'vid=12E7C']) {
    const error = await failure(qz.NoSuchHub, pick(selector));
    assert.equal(error.remedy, 'attached are: 1-3.1 (bay 3), 1-2, 1-4.3.1', selector);
  }
  for (const selector of [undefined, 'vid=2E7C', '2E7C:0818', 'USB(3)#USB(1)']) {
    assert.match((await failure(qz.WrongUse, pick(selector))).remedy, /1-3\.1 \(bay 3\), /);
  }
  for (const [text, what] of [['bay 3', /line 1 is not NAME = PORT/], ['a=1-1\nb=', /line 2 is not NAME = PORT/],
    ['a=1-1\na=1-2', /line 2 names 'a' again/], ['a=1-1\nb=1-1', /line 2 gives port 1-1 another name/],
    ['a=1-', /line 1 has '1-', which is not a port id/], ['a\x1b=1-1', /line 1 has a name with a control character/],
    ...['1-2', '1400/1-2.1:0', '2e7c:818', 'Usb(2)', 'instance:7'].map((name) => [`${name}=1-1`,
      /line 1 has the name '.*', which already means something else/])]) {
    fs.writeFileSync(names, text);
    assert.match((await failure(qz.QzHidError, pick('1-3.1'))).what, what);
  }
  fs.rmSync(names);
  delete process.env.QZ_VIRTUAL_HUB;
});

onMachine('lines, I2C targets and flash are reached', [hub({
  gpio_high: [5], i2c: [{ kind: 'eeprom', address: '0xA0', page_size: 8 }],
  bridge_flash: { size: 4096, busy_polls: 3 } })], [], () => withHub(async (open) => {
  assert.deepEqual(await Promise.all([0, 5, 23].map((line) => open.gpioGet(line))), [0, 1, 0]);
  await open.gpioDrive(23, 1);
  await open.gpioSet(3, 1);
  assert.deepEqual(await Promise.all([23, 3].map((line) => open.gpioGet(line))), [1, 1]);
  const target = open.i2c(0xa0);
  const data = Buffer.from(Array.from({ length: 250 }, (_, at) => at + 1));
  await target.write(5, data);
  assert.deepEqual(await target.read(0, 256), Buffer.concat([Buffer.alloc(5, 255), data, Buffer.alloc(1, 255)]));
  assert.deepEqual(await target.readAt(Buffer.from([5, 0]), 192), data.subarray(0, 192));
  await open.flashWrite(0, Buffer.alloc(300));
  assert.equal(await open.flashStatus(), 0);
  await open.flashStage(512, Buffer.alloc(2));
  await open.flashErase();
  assert.equal(await open.flashStatus(), 0);
  await failure(qz.RequestFailed, open.flashWrite(4096, Buffer.alloc(1)));
}));

test('requests have the bytes that were asked for', async () => {
  const wire = path.join(work, 'wire.pcapng');
  for (const [run, sent] of [
    [(open) => open.blockCommand([1, 2, 3], 0x10, 0x20, Buffer.from('pool')), '40f20102000330000000706f6f6c'],
    [(open) => open.blockCommand([1, 2, 3], 0x01020304), '40f20102000304030201'],
    [(open) => open.i2c(0xa0, { speed: 1 }).write(0x0102, Buffer.from('ab')), '40c6020100000200a00281|6162'],
    [(open) => open.i2c(0xa0, { memoryBytes: 1, speed: 2 }).read(0x0102, 9), '40d6020100000900a00182'],
    [(open) => open.i2c(0xa0, { memoryBytes: 5 }).readAt(Buffer.from([1, 2, 3, 4, 5]), 9), '40d6010203040905a00580'],
    [(open) => open.flashWrite(0x01020304, Buffer.from('ab')), '40f1040302010200|6162'],
    [(open) => open.flashStage(0x01020304, Buffer.from('ab')), '00cf040302010200|6162'],
    [(open) => open.gpioSet(0x0102, 1), '40040101020100'],
    [(open) => open.gpioDrive(5, 1), '400c0005000100']]) {
    await qz.virtual({ devices: [hub()], capture: wire }, () => withHub((open) => run(open).catch(() => {})),
      { library });
    const capture = fs.readFileSync(wire);
    for (const part of sent.split('|')) assert.ok(capture.includes(Buffer.from(part, 'hex')), part);
    fs.rmSync(wire);
  }
});

onMachine('a write waits while the EEPROM stores a page', [hub({ i2c: [{ kind: 'eeprom', address: '0xA0' }] })],
  [{ on: 'request', request: '40/C6', nth: 2, count: 3, action: 'stall' }], () => withHub(async (open) => {
    await open.i2c(0xa0).write(0, Buffer.alloc(16));
    assert.deepEqual(await open.i2c(0xa0).read(0, 16), Buffer.alloc(16));
  }));

onMachine('a refused request says status and remedy, and the next one works', [hub({ gpio_high: [1] })], [],
  () => withHub(async (open) => {
    const error = await failure(qz.RequestFailed, open.i2c(0x42).read(0, 4));
    assert.equal(error.status, os.constants.errno.EPIPE);
    assert.equal(error.message, 'hub 1-3.1: the I2C read failed with status 32 (the hub or the target refused it); '
      + 'check the address and that the hub runs its firmware');
    assert.equal(await open.gpioGet(1), 1);
  }));

onMachine('a hub that left is lost, and usable when it is back', [hub({ gpio_high: [1] })], [],
  (machine) => withHub(async (open) => {
    machine.unplug('hub');
    assert.match((await failure(qz.HubLost, open.gpioGet(1))).what, /and the hub is gone/);
    machine.plug('hub');
    assert.equal(await open.gpioGet(1), 1);
  }));

onMachine('what is out of range is rejected before anything is sent', [hub()], [], () => withHub(async (open) => {
  for (const call of [
    () => open.gpioGet(24), () => open.gpioGet('1'), () => open.gpioDrive(0, 2), () => open.gpioSet(65536, 1),
    async () => open.i2c(0), async () => open.i2c(1, { speed: 3 }), () => open.i2c(1).read(2 ** 32, 1),
    () => open.i2c(1).write(0, Buffer.alloc(1), 129), () => open.i2c(1).readAt(Buffer.alloc(6), 1),
    () => open.blockCommand([0, 0], 0), () => open.blockCommand([0, 0, 0], 0, 0, Buffer.alloc(55)),
    () => open.update(image.new, { sha256: '12' }), () => open.update(image.new, { retries: -1 })]) {
    await failure(RangeError, call());
  }
  await failure(TypeError, open.i2c(1).write(0, 'text'));
}));

onMachine('an update reports progress while the event loop keeps turning', [hub({ gpio_high: [2] })], [],
  () => withHub(async (open) => {
    const steps = [];
    let turns = 0;
    const timer = setInterval(() => { turns += steps.length > 0 && steps.length < 200 ? 1 : 0; }, 0);
    const result = await open.update(image.new, { progress: (percent) => steps.push(percent) });
    clearInterval(timer);
    assert.deepEqual(result, { outcome: 'updated', before: '1.02', runs: '2.10', retries: 0 });
    assert.deepEqual([...steps].sort((a, b) => a - b), steps);
    assert.deepEqual(steps.slice(0, 3), [0, 10, 20]);
    assert.deepEqual(steps.slice(-3), [70, 90, 100]);
    assert.ok(turns > 0);
    assert.equal(await open.gpioGet(2), 1);
    assert.deepEqual(await open.state(), { vid: 0x2e7c, pid: 0x0818, version: '2.10', runs: '2.10' });
    assert.equal((await qz.listHubs())[0].version, '2.10');
  }));

onMachine('an image that is not for the hub is refused', [hub()], [], () => withHub(async (open) => {
  for (const [name, what, remedy] of [
    ['vendor', 'the image is for vendor 2E7D, the hub is of vendor 2E7C', 'use an image for this hub'],
    ['product', 'the image is for product 0820, the hub is product 0818',
      'use an image for this hub, or force: true to write it anyway'],
    ['older', "the hub runs 1.02, which is newer than the image's 1.01",
      'use a newer image, or allowOlder: true to write it anyway']]) {
    const error = await failure(qz.Refused, open.update(image[name]));
    assert.deepEqual([error.what, error.remedy, error.hub, error.runs, error.outcome],
      [what, remedy, '1-3.1', '1.02', 'refused']);
  }
  await failure(qz.Refused, open.update(image.vendor, { force: true, allowOlder: true }));
  assert.equal((await open.update(image.same)).outcome, 'current');
  assert.equal((await open.update(image.same, { force: true })).outcome, 'updated');
  assert.equal((await open.update(image.older, { allowOlder: true })).runs, '1.01');
  assert.equal((await open.update(image.product, { force: true })).runs, '2.10');
}));

onMachine('a file that is not the wanted image is refused', [hub()], [], () => withHub(async (open) => {
  const good = fs.readFileSync(image.new);
  const damaged = Buffer.from(good);
  damaged[100] ^= 1;
  for (const [name, data] of [['short', good.subarray(1)], ['long', Buffer.alloc(0x1000001)], ['damaged', damaged]]) {
    fs.writeFileSync(path.join(work, `${name}.bin`), data);
  }
  const digest = crypto.createHash('sha256').update(good).digest('hex');
  for (const [name, what, options] of [
    ['short', /is too short: 32679 bytes of at least 32680/], ['long', /is too long/], ['damaged', /is damaged/],
    ['', /is not a regular file/], ['none', /does not exist/],
    ['new', /is longer than the flash: 32680 bytes of at most 32679/, { flashSize: 32679 }],
    ['new', new RegExp(`has the SHA-256 ${digest}`), { sha256: '0'.repeat(64) }]]) {
    const file = path.join(work, name && `${name}.bin`);
    assert.match((await failure(qz.Refused, open.update(file, options))).what, what);
  }
  assert.equal(await open.version(), '1.02');
  const wanted = { sha256: digest.toUpperCase(), flashSize: 32680 };
  assert.equal((await open.update(image.new, wanted)).outcome, 'updated');
}));

// After a loss of power in the check of the flash, the hub runs the image.
for (const [request, retries] of [['40/00', 1], ['40/E8', 1], ['40/C8', 1], ['C0/D8', 0]]) {
  onMachine(`a try that fails at ${request} is repeated, also from the loader`, [hub()], [loss(request)],
    () => withHub(async (open) => assert.deepEqual(await open.update(image.new),
      { outcome: 'updated', before: '1.02', runs: '2.10', retries })));
}

onMachine('the hub is awaited when it is away', [hub({
  timing: { latency_us: 0, erase_ms: 5, leave_ms: 1, return_ms: 260, ready_ms: 1 } })],
[loss('40/C8', { nth: 5, return_ms: 700 })],
() => withHub(async (open) => assert.equal((await open.update(image.new, { retries: 1, wait: 20 })).retries, 1)),
{ time: 'real' });

onMachine('a version that cannot be read once is read again', [hub()],
  [{ on: 'request', request: 'C0/09', nth: 2, action: 'stall' }],
  async () => assert.equal((await qz.listHubs())[0].version, '1.02'));

onMachine('a hub that leaves while it is asked is asked again', [hub()],
  [{ on: 'request', request: 'C0/09', action: 'unplug', return_ms: 0 }],
  () => withHub(async (open) => assert.equal((await open.update(image.new, { wait: 0 })).runs, '2.10')));

onMachine('a try with an older image is repeated, too', [hub()], [loss('40/00')],
  () => withHub(async (open) => assert.equal((await open.update(image.older, { allowOlder: true })).retries, 1)));

onMachine('a hub that starts its other bank is not updated', [hub({ dual_bank: true })],
  [{ on: 'request', request: '40/C8', count: 0, action: 'lose_write' }], () => withHub(async (open) => {
    const error = await failure(qz.UpdateFailed, open.update(image.new, { retries: 0 }));
    assert.equal(error.what, 'the image is written, but not started, and the hub runs 1.02');
  }));

onMachine('bytes after the image are no damage', [hub()], [], () => withHub(async (open) => {
  const longer = path.join(work, 'longer.bin');
  fs.writeFileSync(longer, Buffer.concat([fs.readFileSync(image.new), Buffer.from('more')]));
  assert.equal((await open.update(longer)).runs, '2.10');
}));

onMachine('no more hubs than wanted are written at a time', [{ name: 'a', port: '1' }, { name: 'b', port: '2' }], [],
  async () => {
    const ports = [];
    await qz.updateHubs(await qz.listHubs(), image.new, { jobs: 1, progress: (one) => ports.push(one.portId) });
    assert.deepEqual([...ports].sort(), ports);
    assert.equal(new Set(ports).size, 2);
  });

onMachine('a hub that stays in its loader is reported and recovered', [hub()],
  [loss('40/C8', { nth: 5 }), loss('40/C8', { nth: 10 })], () => withHub(async (open) => {
    const error = await failure(qz.InLoader, open.update(image.new, { retries: 1, wait: 0 }));
    assert.deepEqual([error.what, error.runs, error.outcome],
      ['the update failed, and the hub is in its loader', 'loader', 'loader']);
    assert.equal(await open.version(), null);
    await failure(qz.InLoader, open.update(image.new));
    await failure(qz.Refused, open.recover(image.vendor));
    assert.deepEqual(await open.recover(image.new),
      { outcome: 'updated', before: 'loader', runs: '2.10', retries: 0 });
    assert.match((await failure(qz.Refused, open.recover(image.same))).what, /the hub runs its firmware 2\.10/);
  }));

onMachine('an update that fails before the erase leaves the firmware', [hub()],
  [{ on: 'request', request: '40/00', count: 0, action: 'stall' }], () => withHub(async (open) => {
    const error = await failure(qz.UpdateFailed, open.update(image.new, { wait: 0 }));
    assert.deepEqual([error.what, error.runs, error.outcome],
      ['the update failed, and the hub runs 1.02', '1.02', 'failed']);
  }));

onMachine('a hub that does not come back is lost', [hub()], [{ on: 'reset', action: 'never_return' }],
  () => withHub(async (open) => {
    const error = await failure(qz.HubLost, open.update(image.new, { wait: 0 }));
    assert.deepEqual([error.what, error.runs, error.outcome],
      ['the update failed, and the hub has left the bus', null, 'lost']);
  }));

for (const [nth, kind, what] of [[6, qz.PermissionDenied, 'the hub cannot be opened'],
  [20, qz.HubLost, 'the update failed, and the hub cannot be opened']]) {
  onMachine(`a hub that cannot be opened from the ${nth}th time on is reported as such`, [hub()],
    [{ ...notOpenable, nth }], () => withHub(async (open) => {
      const error = await failure(kind, open.update(image.new, { wait: 0 }));
      assert.equal(error.what, what);
      assert.match(error.remedy, /udev rule/);
    }));
}

onMachine('another hub at the port is not written', [hub(), { name: 'other', port: '3.1', plugged: false,
  image: { pid: '0x0820' } }], [],
(machine) => withHub(async (open) => {
  const swap = (percent) => {
    if (percent !== 10) return;
    machine.unplug('hub');
    machine.plug('other');
  };
  const error = await failure(qz.HubLost, open.update(image.new, { wait: 0, progress: swap }));
  assert.match(error.what, /and another hub has taken its place/);
}), { time: 'real' });

onMachine('a hub can stay in its loader', [hub()], [], () => withHub(async (open) => {
  assert.equal((await open.update(image.new, { stayInLoader: true })).runs, 'loader');
}));

onMachine('qzhid does not write a hub meanwhile, nor does another process', [hub()], [], (machine) => withHub(async (open) => {
  const others = [];
  const interfere = (percent) => {
    if (percent !== 10) return;
    const environment = { ...process.env, QZ_VIRTUAL_HUB: machine.scenario };
    others.push(promisify(execFile)(QZHID, ['--library', library, 'update', '-i', image.new, '-y'], { env: environment })
      .then(() => 0, (error) => error.code));
    others.push(withHub((other) => failure(qz.Refused, other.update(image.new))).then((error) => error.what));
  };
  await open.update(image.new, { progress: interfere });
  assert.deepEqual(await Promise.all(others), [5, 'another process is writing the hub']);
}), { time: 'real' });

onMachine('a hub that is closed is rejected', [hub()], [], async () => {
  const open = await qz.Hub.open();
  const target = open.i2c(0xa0);
  const last = open.version();
  await open.close();
  assert.equal(await last, '1.02');
  for (const call of [open.version(), open.update(image.new), open.gpioGet(1), target.read(0, 1)]) {
    await failure(qz.HubClosed, call);
  }
  await open.close();
});

onMachine('what the callback throws is thrown when the update is complete', [hub()], [], () => withHub(async (open) => {
  const steps = [];
  const thrown = new SyntaxError('mine');
  const error = await failure(SyntaxError, open.update(image.new, { progress(percent) {
    steps.push(percent);
    throw thrown;
  } }));
  assert.equal(error, thrown);
  assert.deepEqual(steps, [0]);
  assert.equal(await open.version(), '2.10');
}));

onMachine('a failed update counts more than what the callback throws', [hub()],
  [{ on: 'reset', action: 'never_return' }], () => withHub(async (open) => {
    const thrown = new SyntaxError('mine');
    const error = await failure(qz.HubLost, open.update(image.new, { wait: 0, progress() { throw thrown; } }));
    assert.equal(error.cause, thrown);
  }));

onMachine('the callback can call the hub, and gets its answer after the update', [hub({ gpio_high: [1] })], [],
  () => withHub(async (open) => {
    const levels = [];
    await open.update(image.new, { progress: (percent) => { if (percent === 10) levels.push(open.gpioGet(1)); } });
    assert.deepEqual(await Promise.all(levels), [1]);
  }));

onMachine('hubs are written at the same time, each by a process of its own', [
  { name: 'a', port: '1' }, { name: 'b', port: '2', image: { cut_after: 4096 } }, { name: 'c', port: '3', image: { vid: '0x2E7D' } },
  { name: 'hub', port: '4' }, { name: 'd', port: '5', image: { version: '0x0210' } }],
[notOpenable, loss('40/C8', { nth: 9, device: 'a' })], async () => {
  const steps = {};
  const outcomes = await qz.updateHubs(await qz.listHubs(), image.new, { wait: 0, progress: (one, percent) => {
    steps[one.portId] = percent;
  } });
  assert.deepEqual(outcomes.map((one) => [one.hub.portId, one.outcome, one.before, one.runs, one.retries,
    one.error?.constructor.name]), [
    ['1-1', 'updated', '1.02', '2.10', 1, undefined], ['1-2', 'updated', 'loader', '2.10', 0, undefined],
    ['1-3', 'refused', null, '1.02', 0, 'Refused'], ['1-5', 'current', '2.10', '2.10', 0, undefined],
    ['1-4', 'refused', null, null, 0, 'PermissionDenied']]);
  assert.deepEqual(steps, { '1-1': 100, '1-2': 100 });
});

/** The processes that this one has started. */
function children() {
  const statusOf = (pid) => {
    try {
      return fs.readFileSync(`/proc/${pid}/status`, 'utf8');
    } catch {
      return ''; // it has ended
    }
  };
  return fs.readdirSync('/proc').filter((name) => /^\d+$/.test(name))
    .filter((pid) => statusOf(pid).includes(`\nPPid:\t${process.pid}\n`)).map(Number);
}

onMachine('a process that dies leaves a hub in an unknown state, and no other one', [hub()], [], async () => {
  const open = await qz.Hub.open();
  const update = open.update(image.new, { progress: () => children().forEach((child) => process.kill(child, 'SIGKILL')) });
  assert.match((await failure(qz.HubLost, update)).what, /SIGKILL.*the hub's state is unknown/);
  assert.match((await failure(qz.HubClosed, open.version())).what, /has ended \(SIGKILL\)/);
  assert.equal((await qz.listHubs()).length, 1);
}, { time: 'real' });

onMachine('signals do not end a process that writes a hub', [hub()], [], () => withHub(async (open) => {
  const signals = ['SIGINT', 'SIGTERM', 'SIGHUP'];
  const interrupt = (percent) => {
    if (percent === 10) children().forEach((child) => signals.forEach((signal) => process.kill(child, signal)));
  };
  assert.equal((await open.update(image.new, { progress: interrupt })).runs, '2.10');
  assert.equal(await open.version(), '2.10');
}));

onMachine('a hub is written to the end when the program dies', [hub()], [], async (machine) => {
  const program = `const qz = require(${JSON.stringify(PACKAGE)});
    qz.useLibrary(${JSON.stringify(library)});
    qz.Hub.open().then((open) => open.update(process.argv[1], { progress: (percent) => {
      if (percent === 30) process.kill(process.pid, 'SIGKILL'); } }));`;
  const child = spawn(process.execPath, ['-e', program, image.new],
    { env: { ...process.env, QZ_VIRTUAL_HUB: machine.scenario } });
  await new Promise((resolve) => { child.on('exit', resolve); });
  let version;
  for (let looks = 0; looks < 100 && version !== '2.10'; ++looks) version = (await qz.listHubs())[0]?.version;
  assert.equal(version, '2.10');
});

test('a file that is no such library is rejected', async () => {
  for (const [file, what] of [['/nowhere/lib.so', /cannot be loaded/], ['libc.so.6', /has no function QZ_ListAllHidDev/]]) {
    qz.useLibrary(file);
    assert.match((await failure(qz.LibraryError, qz.listHubs())).what, what);
  }
  qz.useLibrary();
});

onMachine('a log is written', [hub()], [], async () => {
  const log = path.join(work, 'log.txt');
  await (await qz.Hub.open(undefined, { log, logLevel: 1 })).close();
  assert.match(fs.readFileSync(log, 'utf8'), /QZ_ListAllHidDev, List Device Success/);
  await failure(qz.QzHidError, qz.Hub.open(undefined, { log: '/nowhere/log.txt' }));
});
