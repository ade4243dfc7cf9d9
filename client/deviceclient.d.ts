// SPDX-License-Identifier: MIT
import { BankCard, Commands, IdCard, Numeric, PushedEvents, SocialCard } from './commands.js';
export * from './commands.js';

/** Base of all errors of the client. `code` never changes; messages may. */
export class DeviceError extends Error {
  readonly code: 'UNKNOWN_COMMAND' | 'BAD_ARGUMENT' | 'SERVER_NOT_RUNNING' | 'REFUSED_BY_BROWSER'
    | 'CONNECTION_LOST' | 'TIMED_OUT' | 'ABORTED' | 'FAILED' | 'CLOSED';
}
/** There is no such command; the server would not answer. */
export class UnknownCommandError extends DeviceError {}
/** Arguments that the command doesn't accept or the protocol can't carry. */
export class ArgumentError extends DeviceError {}
/** Nothing listens at the address. */
export class ServerNotRunningError extends DeviceError {}
/** The browser blocks the connection, as far as a page can tell. */
export class RefusedByBrowserError extends DeviceError {}
/** The connection was lost; for a call: before its answer arrived. */
export class ConnectionLostError extends DeviceError {}
/** No answer arrived in time. */
export class CallTimeoutError extends DeviceError {
  /**
   * What the call was waiting for: the end of an earlier one, in this page or another tab; the connection;
   * the answer of an earlier one that nobody waits for any more; its own answer.
   */
  readonly phase: 'turn' | 'connection' | 'earlier' | 'answer';
}
/** Its AbortSignal was aborted. */
export class AbortError extends DeviceError {
  /** The signal's, where the browser has one. */
  readonly reason: unknown;
}
/** A job failed on the device. */
export class FailedError extends DeviceError {
  /** What was answered. */
  readonly result: any;
}
/** close() was called. */
export class ClosedError extends DeviceError {}

// ---- Of the browser, as far as it is used: no library "dom" is needed ------------------------------

/** A WebSocket class: the browser's, or that of the npm package ws. */
export interface WebSocketClass {
  new (url: string): any;
}
/** An AbortSignal. */
export interface Signal {
  readonly aborted: boolean;
  addEventListener(type: 'abort', listener: () => void): void;
  removeEventListener(type: 'abort', listener: () => void): void;
}
/** A <canvas>. */
export interface Canvas {
  width: number;
  height: number;
  getContext(type: '2d'): any;
}
/** An <img>. */
export interface Img {
  src: string;
  onload: any;
  onerror: any;
}

// ---- Options and events ----------------------------------------------------------------------------

export interface ClientOptions {
  /** Default: ws://127.0.0.1:1818 */
  url?: string;
  /** Milliseconds from a call to its answer; more for commands that may take longer. Default: 10000 */
  timeout?: number;
  /** Milliseconds for an attempt to connect; more while the browser asks its user. Default: 15000 */
  connectTimeout?: number;
  /** Milliseconds before each reconnection attempt; the last one repeats. Empty: no attempts. */
  retryDelays?: number[];
  /** Default: globalThis.WebSocket */
  WebSocket?: WebSocketClass;
}

export interface WaitOptions {
  /** Milliseconds from now on, connecting included; each job and command has a default. */
  timeout?: number;
  /** Rejects with AbortError when aborted. What has been sent is carried out all the same. */
  signal?: Signal;
}

export interface CallOptions extends WaitOptions {
  /** Sends any name with unchecked arguments; the result is a text. */
  raw?: boolean;
}

export interface OnceOptions<Value> extends WaitOptions {
  /** Whether this is the event that is waited for. */
  accept?(value: Value): boolean;
}

/** Framed texts of your own that another page sends with "#": declare their names and types here. */
export interface CustomEvents {}

export interface ClientEvents extends PushedEvents, CustomEvents {
  /** Connected or reconnected; the server has stopped the preview meanwhile. */
  open: void;
  /** The connection was lost, or an attempt failed; retryIn: milliseconds to the next one. */
  close: DeviceError & { retryIn?: number };
  /** A text without a frame; listeners get its JSON object as the second value, if it is one. */
  text: string;
  /** An answer whose call has ended before. */
  late: { name: string; result: unknown };
  /** Every text as received. */
  message: string;
  /** A Preview has drawn a frame. */
  drawn: Preview;
}

/** All that can be heard: also answers that no call waits for, such as those of another page's commands. */
export type EventValues = ClientEvents
  & { [Name in Exclude<keyof Commands, keyof PushedEvents>]: ReturnType<Commands[Name]> };

export type Listener<Event extends keyof EventValues> =
  Event extends 'text' ? (text: string, json?: Record<string, unknown>) => void
    : (value: EventValues[Event]) => void;

// ---- The client ------------------------------------------------------------------------------------

export class DeviceClient {
  constructor(options?: ClientOptions);
  readonly state: 'closed' | 'connecting' | 'open' | 'waiting';
  /** Why there is no connection; null while nothing has failed. */
  readonly lastError: DeviceError | null;

  /** Settles with the first attempt, then reconnects until close(). Calls connect when needed. */
  connect(): Promise<void>;
  /** Ends the connection and all attempts, and rejects pending calls. */
  close(): void;

  /** Sends a command; rejected with a DeviceError. */
  call<Name extends keyof Commands>(name: Name, ...args: Parameters<Commands[Name]>):
    Promise<ReturnType<Commands[Name]>>;
  callWith(options: CallOptions & { raw: true }, name: string, ...args: (string | number)[]): Promise<string>;
  callWith<Name extends keyof Commands>(options: CallOptions, name: Name,
    ...args: Parameters<Commands[Name]>): Promise<ReturnType<Commands[Name]>>;
  /** Sends a text unchanged. */
  send(text: string): Promise<void>;

  /** Listens to an event; returns a function that removes the listener. */
  on<Event extends keyof EventValues>(event: Event, listener: Listener<Event>): () => void;
  off<Event extends keyof EventValues>(event: Event, listener: Listener<Event>): void;
  /** The next event; without `timeout` it is waited for until close(). */
  once<Event extends keyof EventValues>(event: Event, options?: OnceOptions<EventValues[Event]>):
    Promise<EventValues[Event]>;
  /** The newest frame each time, base64; ends with close(). `timeout` is that between two frames. */
  frames(options?: WaitOptions): AsyncIterableIterator<string>;

  /** Draws the frames. */
  preview(target: Canvas | Img, options?: PreviewOptions): Preview;

  // Jobs: rejected with FailedError when the device fails. Scores are 0 to 100.

  /** The score of the faces in two image files (lImageMatch). */
  compareFaces(image1: string, image2: string, options?: WaitOptions): Promise<number>;
  /** The score of an image file and the face that appears in front of the camera (bImageMatchOnline). */
  compareWithCamera(image: string, options?: JobOptions): Promise<number>;
  /** The feature of the face that appears in front of the camera, base64 (bFaceFeatureGetOnline). */
  faceFeature(options?: JobOptions): Promise<string>;
  /** Whether a live person is in front of the camera (bLivingBodyDetectOnline). */
  checkLiveness(options?: JobOptions): Promise<boolean>;
  /** The same with pictures as frames (AutoLivingBody). The preview ends; so does the check, with the signal. */
  watchLiveness(options?: WaitOptions): Promise<PushedEvents['AfterbLivingBodyDetectEvent2']>;
  /** The image and feature of a finger (fingerCaptureRawData). */
  captureFinger(options?: JobOptions): Promise<ReturnType<Commands['fingerCaptureRawData']>>;

  /** Only this page gets the card's data (readIDMsg). */
  readIdCard(options?: WaitOptions): Promise<IdCard>;
  readSocialCard(options?: WaitOptions & { type?: Numeric }): Promise<SocialCard>;
  readBankCard(options?: WaitOptions & { type?: Numeric }): Promise<BankCard>;

  /**
   * Records the preview until `end`: a promise, an AbortSignal or milliseconds. Resolves to the file's path
   * when the file is complete; `signal` and a rejected `end` also end the recording, but reject.
   */
  recordUntil(end: PromiseLike<unknown> | Signal | number, options: WaitOptions & {
    file: string;
    /** MPEG-4 instead of H.264. */
    mpeg4?: boolean;
  }): Promise<string>;
  /** Scans automatically until the loop ends; the numbers of the shots. `timeout` is that between two. */
  scans(folder: string, prefix: string, options?: WaitOptions): AsyncIterableIterator<number>;

  /** Asks the customer for a signature. Rejected on errors only: see `status`. */
  sign(pdf: string, options: SignOptions): Promise<Signature>;
  /** Shows the information exchange page with the data, and waits for the customer's answer. */
  askCustomer(data: PageData, options?: WaitOptions): Promise<Record<string, string>>;
  /** Shows the service evaluation page with the data, and waits for the customer's opinion. */
  rateService(data: PageData, options?: WaitOptions): Promise<Record<string, string>>;

  /**
   * Calls a command that starts something, and waits for the event that ends it. `seconds`: like timeout, 60
   * by default; `accept`: whether an event is the one that is waited for, with its text as received.
   */
  eventAfter<Event extends keyof PushedEvents | 'text', Name extends keyof Commands>(event: Event,
    options: WaitOptions & { seconds?: number; accept?(value: any, text: string): boolean }, name: Name,
    ...args: Parameters<Commands[Name]>): Promise<Event extends keyof PushedEvents ? PushedEvents[Event] : any>;
}

export interface JobOptions extends WaitOptions {
  /** How long the customer has. Default: 10 */
  seconds?: number;
}

export interface SignOptions extends WaitOptions {
  /** The page, from 1 (the default), and the rectangle on it, in points from its lower left corner. */
  page?: number;
  x: number;
  y: number;
  width: number;
  height?: number;
  /** Path of a record of the signing. */
  xml?: string;
  /** Keep the strokes and their picture. */
  retain?: boolean;
  /** How long the customer has, 0: as long as it takes. Default: 120 */
  seconds?: number;
  /** Show the whole document, not only the page to be signed. */
  whole?: boolean;
  /** For a service other than elecsign: whether a text is the reply, as JSON or else as it is. */
  accept?(reply: any, text: string): boolean;
}

/** The signature service's reply. */
export interface Signature {
  status: 'signed' | 'cancelled' | 'timeout';
  code: number;
  message: string;
  pdfpath: string;
  time: string;
  signedpath?: string;
  /** Base64. */
  png?: string;
  pngpath?: string;
  strokespath?: string;
  recordpath?: string;
  [member: string]: unknown;
}

/** Pairs for a counter page. `id` comes back with the answer; without it the client makes one up. */
export type PageData = Record<string, string | number>;

export interface PreviewOptions {
  /** Decode in a Web Worker that all such previews of the page share; elsewhere if the page allows none. */
  worker?: boolean;
}

/** Draws the newest frame and drops older ones; a hidden page decodes nothing. */
export class Preview {
  constructor(client: DeviceClient, target: Canvas | Img, options?: PreviewOptions);
  readonly received: number;
  readonly drawn: number;
  /** Frames replaced by a newer one before they were drawn. */
  readonly dropped: number;
  /** Frames that are not a readable JPEG. */
  readonly broken: number;
  /** Stops drawing; the last frame stays. */
  stop(): void;
}

/** Parses "Begin<name><result>End<name>"; null if the text is not framed. */
export function parseAnswer(text: string): { name: string; result: string } | null;

/** The text that call() sends; throws UnknownCommandError or ArgumentError. */
export function commandText(name: string, args: unknown[]): string;
