// Finds and services USB hub controllers through their vendor HID interface.

/** A hub of a list. */
export interface HubInfo {
  /** "1-3.1": where it is plugged in; stays the same when the hub resets. */
  portId: string;
  /** What the user calls the port; empty without a name. */
  name: string;
  vid: number;
  pid: number;
  /** The whole path to the port, of which the port id is made. */
  location: string;
  locations: string[];
  hardwareIds: string[];
  /** Means nothing in another process. */
  instance: number;
  level: number;
  port: number;
  /** False: this user has no permission, or another program has it open for itself. */
  openable: boolean;
  /** "unknown" when it was not asked. */
  state: 'firmware' | 'loader' | 'no permission' | 'silent' | 'unknown';
  /** Of the firmware, "2.10", if it runs that. */
  version: string | null;
}

export interface HubState {
  vid: number;
  pid: number;
  /** Null in the loader. */
  version: string | null;
  /** The version, or "loader". */
  runs: string;
}

export interface OpenOptions {
  /** A file for the library's log, which is emptied. */
  log?: string;
  /** 0 (default) everything, 3 failures only. */
  logLevel?: number;
}

export interface RecoverOptions {
  /** Called with 0 to 100. */
  progress?: (percent: number) => void;
  /** Tries after one that failed, default 2. */
  retries?: number;
  /** Seconds to wait for a hub that left, default 30. */
  wait?: number;
  /** Refuse an image with another SHA-256, 64 hexadecimal digits. */
  sha256?: string;
  /** Refuse an image that is longer. */
  flashSize?: number;
}

export interface UpdateOptions extends RecoverOptions {
  /** Also if the hub runs this version, or is another product of the vendor. */
  force?: boolean;
  /** Also if the hub runs a newer version. */
  allowOlder?: boolean;
  /** Do not start the new firmware. */
  stayInLoader?: boolean;
}

export interface UpdateResult {
  outcome: 'updated' | 'current';
  /** Versions, or "loader". */
  before: string;
  runs: string;
  retries: number;
}

export interface HubOutcome {
  hub: HubInfo;
  outcome: 'updated' | 'current' | 'refused' | 'loader' | 'lost' | 'failed';
  /** Null where it is not known. */
  before: string | null;
  runs: string | null;
  retries: number;
  /** Why the hub is neither updated nor current. */
  error: QzHidError | null;
}

export class I2CTarget {
  private constructor();
  read(memory: number, length: number): Promise<Uint8Array>;
  /** With the memory address as up to five bytes, least significant first. */
  readAt(address: Uint8Array, length: number): Promise<Uint8Array>;
  /** Page by page; a page of 8 bytes, the default, is always safe. */
  write(memory: number, data: Uint8Array, page?: number): Promise<void>;
}

/** An open hub. It has a process of its own, in which its calls run one after another. */
export class Hub {
  private constructor();
  /** The hub as it was listed when it was opened. */
  readonly info: HubInfo;
  /** Opens the hub that the selector names (port id, name, location, "VID:PID"); without one, the only hub. */
  static open(selector?: string, options?: OpenOptions): Promise<Hub>;
  /** Closes it after the calls that are under way. */
  close(): Promise<void>;
  state(): Promise<HubState>;
  /** Null in the loader. */
  version(): Promise<string | null>;
  /** Writes an image, checks it and starts it; after a failure tries again. */
  update(image: string, options?: UpdateOptions): Promise<UpdateResult>;
  /** The same for a hub that is in its loader because an update was interrupted. */
  recover(image: string, options?: RecoverOptions): Promise<UpdateResult>;
  gpioGet(line: number): Promise<number>;
  gpioDrive(line: number, level: number): Promise<void>;
  /** By the hub's own numbering. */
  gpioSet(number: number, level: number): Promise<void>;
  i2c(target: number, options?: { memoryBytes?: number; speed?: number }): I2CTarget;
  flashWrite(address: number, data: Uint8Array): Promise<void>;
  flashStage(address: number, data: Uint8Array): Promise<void>;
  flashErase(): Promise<void>;
  /** 1 means busy. */
  flashStatus(): Promise<number>;
  blockCommand(commands: [number, number, number], address: number, offset?: number, data?: Uint8Array): Promise<void>;
}

/** All hubs of the family, each with what it runs. Those that cannot be opened come last. */
export function listHubs(): Promise<HubInfo[]>;
/** The HID devices with exactly these ids, of the family or not. Opens no device. */
export function listDevices(vid: number, pid: number): Promise<HubInfo[]>;
/** Updates hubs of listHubs(), also those in their loader, `jobs` (default 4) at a time. */
export function updateHubs(hubs: HubInfo[], image: string, options?: Omit<UpdateOptions, 'progress' | 'stayInLoader'> & {
  jobs?: number;
  progress?: (hub: HubInfo, percent: number) => void;
}): Promise<HubOutcome[]>;
/** From now on uses that file as the library; without one, that of the package or the system. */
export function useLibrary(file?: string): void;

/** The simulated computer that virtual hubs are attached to. */
export class Machine {
  private constructor();
  /** The scenario's file. */
  readonly scenario: string;
  plug(name: string, port?: string): void;
  unplug(name: string): void;
  powerLoss(name: string, milliseconds?: number): void;
}
/** While `work` runs, the hubs are those of the scenario: an object as docs/virtual-hub.md describes it, or the
 * path of such a file. */
export function virtual<T>(scenario: object | string, work: (machine: Machine) => Promise<T> | T,
  options?: { library?: string }): Promise<T>;

/** What failed, on which hub, what that hub runs now, and what to do about it. */
export class QzHidError extends Error {
  readonly what: string;
  readonly remedy: string;
  /** As messages name it, "1-3.1 (bay 3)"; empty where none is concerned. */
  readonly hub: string;
  /** "2.10" or "loader"; null when that is not known. */
  readonly runs: string | null;
  readonly outcome: 'refused' | 'loader' | 'lost' | 'failed';
}
export class PermissionDenied extends QzHidError {}
export class Refused extends QzHidError {}
export class InLoader extends QzHidError {}
export class HubLost extends QzHidError {}
export class UpdateFailed extends QzHidError {}
export class RequestFailed extends QzHidError {
  /** The library's result. */
  readonly status: number;
}
export class NoSuchHub extends QzHidError {}
export class LibraryError extends QzHidError {}
export class WrongUse extends QzHidError {}
export class HubClosed extends WrongUse {}
