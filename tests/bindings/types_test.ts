// What a program in TypeScript may write, and, after each @ts-expect-error, what it may not.
import {
  Hub, HubInfo, HubOutcome, I2CTarget, InLoader, PermissionDenied, QzHidError, RequestFailed, listDevices, listHubs,
  updateHubs, useLibrary, virtual,
} from 'qzhidapi';

async function use(image: string): Promise<string> {
  const hubs: HubInfo[] = [...await listHubs(), ...await listDevices(0x2e7c, 0x0818)];
  const hub = await Hub.open(hubs[0]?.portId, { log: './log.txt', logLevel: 3 });
  const target: I2CTarget = hub.i2c(0xa0, { memoryBytes: 2 });
  await target.write(0, await target.read(0, 16), 64);
  await hub.blockCommand([1, 2, 3], 0);
  const version: string | null = await hub.version();
  const result = await hub.update(image, { progress: (percent) => percent.toFixed(0), retries: 1, force: true });
  const outcome: 'updated' | 'current' = result.outcome;
  const outcomes: HubOutcome[] = await updateHubs(hubs, image, { jobs: 2, progress: (one, percent) => one.vid + percent });
  await hub.close();
  useLibrary();
  // @ts-expect-error: there is no such option
  await hub.update(image, { allowNewer: true });
  // @ts-expect-error: only update() can be forced
  await hub.recover(image, { force: true });
  // @ts-expect-error: three command bytes
  await hub.blockCommand([1, 2], 0);
  // @ts-expect-error: a hub is opened, not made
  new Hub();
  return (version ?? outcome) + outcomes.map((one) => one.error?.remedy).join();
}

function explain(error: unknown): string {
  if (error instanceof RequestFailed) return error.status.toFixed(0);
  if (error instanceof InLoader || error instanceof PermissionDenied) return error.outcome;
  return error instanceof QzHidError ? `${error.what}; ${error.remedy}` : 'unknown';
}

virtual({ devices: [] }, (machine) => {
  machine.unplug('hub');
  return use('new.bin');
}).then((text) => text.length, explain);
