// SPDX-License-Identifier: MIT
import { Commands, PushedEvents } from './commands.js';
export * from './commands.js';

/** Every error of the client is one of these; `code` stays, messages may change. */
export class DeviceError extends Error {
  readonly code: 'UNKNOWN_COMMAND' | 'BAD_ARGUMENT' | 'SERVER_NOT_RUNNING' | 'REFUSED_BY_BROWSER'
    | 'CONNECTION_LOST' | 'TIMED_OUT' | 'CLOSED';
}
/** There is no such command; the server would not answer. */
export class UnknownCommandError extends DeviceError {}
/** The command can't take these arguments, or the protocol can't carry them. */
export class ArgumentError extends DeviceError {}
/** Nobody listens at the address. */
export class ServerNotRunningError extends DeviceError {}
/** The browser keeps this page from the server, as far as a page can tell. */
export class RefusedByBrowserError extends DeviceError {}
/** The connection ended; of a call: before its answer came. */
export class ConnectionLostError extends DeviceError {}
/** No answer came in time. */
export class CallTimeoutError extends DeviceError {}
/** close() was called. */
export class ClosedError extends DeviceError {}

/** What the client needs of a WebSocket class: the browser's, or that of the npm package ws. */
export interface WebSocketClass {
  new (url: string): any;
}

export interface ClientOptions {
  /** ws://127.0.0.1:1818 */
  url?: string;
  /** Milliseconds to wait for an answer, 10000; commands that may take longer wait longer. */
  timeout?: number;
  /** Milliseconds for one try to connect, 15000; longer while the browser asks its user. */
  connectTimeout?: number;
  /** Milliseconds before the tries to connect again; the last one repeats. Empty: none are made. */
  retryDelays?: number[];
  /** The class to use; globalThis.WebSocket. */
  WebSocket?: WebSocketClass;
}

export interface CallOptions {
  /** Milliseconds to wait for the answer. */
  timeout?: number;
  /** Sends the arguments as they are, under any name; the result is the text. */
  raw?: boolean;
}

export interface ClientEvents extends PushedEvents {
  /** Connected, also anew; the server has stopped the preview meanwhile. */
  open: void;
  /** The connection was lost, or a try failed; retryIn: milliseconds to the next try. */
  close: DeviceError & { retryIn?: number };
  /** An answer whose call had timed out. */
  late: { name: string; result: unknown };
  /** Every text as it came. */
  message: string;
  /** A Preview has drawn a frame. */
  drawn: Preview;
}

export class DeviceClient {
  constructor(options?: ClientOptions);
  readonly state: 'closed' | 'connecting' | 'open' | 'waiting';
  /** Why there is no connection; null while nothing has failed. */
  readonly lastError: DeviceError | null;

  /** Settles with the first try; goes on trying until close(). Calls connect by themselves too. */
  connect(): Promise<void>;
  /** Ends the connection and all tries; calls that wait are rejected. */
  close(): void;

  /** Sends a command; rejected with a DeviceError. */
  call<Name extends keyof Commands>(name: Name, ...args: Parameters<Commands[Name]>):
    Promise<ReturnType<Commands[Name]>>;
  callWith(options: CallOptions & { raw: true }, name: string, ...args: (string | number)[]): Promise<string>;
  callWith<Name extends keyof Commands>(options: CallOptions, name: Name,
    ...args: Parameters<Commands[Name]>): Promise<ReturnType<Commands[Name]>>;
  /** Sends a text as it is. */
  send(text: string): Promise<void>;

  /** Hears of an event; returns a function that ends it. */
  on<Event extends keyof ClientEvents>(event: Event, listener: (value: ClientEvents[Event]) => void): () => void;
  /** A text without a frame; the second value is what it holds as a JSON object. */
  on(event: 'text', listener: (text: string, json?: object) => void): () => void;
  /** A framed text that no call waits for. */
  on(event: string, listener: (...values: any[]) => void): () => void;
  off(event: string, listener: (...values: any[]) => void): void;

  /** Draws the frames. */
  preview(target: HTMLImageElement | HTMLCanvasElement): Preview;
}

/** Draws the newest frame and drops those that it overtakes; a hidden page decodes nothing. */
export class Preview {
  constructor(client: DeviceClient, target: HTMLImageElement | HTMLCanvasElement);
  readonly received: number;
  readonly drawn: number;
  /** Frames that a newer one overtook. */
  readonly dropped: number;
  /** Frames that are no readable JPEG. */
  readonly broken: number;
  /** Draws no more; the last frame stays. */
  stop(): void;
}

/** Takes "Begin<name><result>End<name>" apart; null when the text is not framed. */
export function parseAnswer(text: string): { name: string; result: string } | null;

/** The text that call() sends; throws UnknownCommandError or ArgumentError. */
export function commandText(name: string, args: unknown[]): string;
