// SPDX-License-Identifier: MIT
import { Commands, PushedEvents } from './commands.js';
export * from './commands.js';

/** Base of all errors of the client. `code` never changes; messages may. */
export class DeviceError extends Error {
  readonly code: 'UNKNOWN_COMMAND' | 'BAD_ARGUMENT' | 'SERVER_NOT_RUNNING' | 'REFUSED_BY_BROWSER'
    | 'CONNECTION_LOST' | 'TIMED_OUT' | 'CLOSED';
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
export class CallTimeoutError extends DeviceError {}
/** close() was called. */
export class ClosedError extends DeviceError {}

/** A WebSocket class: the browser's, or that of the npm package ws. */
export interface WebSocketClass {
  new (url: string): any;
}

export interface ClientOptions {
  /** Default: ws://127.0.0.1:1818 */
  url?: string;
  /** Milliseconds to wait for an answer; more for commands that may take longer. Default: 10000 */
  timeout?: number;
  /** Milliseconds for an attempt to connect; more while the browser asks its user. Default: 15000 */
  connectTimeout?: number;
  /** Milliseconds before each reconnection attempt; the last one repeats. Empty: no attempts. */
  retryDelays?: number[];
  /** Default: globalThis.WebSocket */
  WebSocket?: WebSocketClass;
}

export interface CallOptions {
  /** Milliseconds to wait for the answer. */
  timeout?: number;
  /** Sends any name with unchecked arguments; the result is a text. */
  raw?: boolean;
}

export interface ClientEvents extends PushedEvents {
  /** Connected or reconnected; the server has stopped the preview meanwhile. */
  open: void;
  /** The connection was lost, or an attempt failed; retryIn: milliseconds to the next one. */
  close: DeviceError & { retryIn?: number };
  /** An answer whose call has timed out. */
  late: { name: string; result: unknown };
  /** Every text as received. */
  message: string;
  /** A Preview has drawn a frame. */
  drawn: Preview;
}

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
  on<Event extends keyof ClientEvents>(event: Event, listener: (value: ClientEvents[Event]) => void): () => void;
  /** A text without a frame; the second value is its JSON object, if it is one. */
  on(event: 'text', listener: (text: string, json?: object) => void): () => void;
  /** A framed text that no call is waiting for. */
  on(event: string, listener: (...values: any[]) => void): () => void;
  off(event: string, listener: (...values: any[]) => void): void;

  /** Draws the frames. */
  preview(target: HTMLImageElement | HTMLCanvasElement): Preview;
}

/** Draws the newest frame and drops older ones; a hidden page decodes nothing. */
export class Preview {
  constructor(client: DeviceClient, target: HTMLImageElement | HTMLCanvasElement);
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
