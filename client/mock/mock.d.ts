// SPDX-License-Identifier: MIT
import { Commands, PushedEvents } from '../commands.js';

/** A result as the text of the protocol, or what happens instead or besides. */
export type Answer = string | {
  result?: string;
  /** Milliseconds until it is sent. */
  delay?: number;
  /** Nothing is sent. */
  drop?: boolean;
  /** A text that ends in the middle of the frame is sent. */
  wrong?: boolean;
  /** The connection is closed instead. */
  close?: boolean;
  /** The server does nothing any more, for so many milliseconds; true: until resume(). */
  hang?: number | true;
  /** The result of the event that follows; false: none follows. */
  event?: string | false;
};
export type ScriptedAnswer = Answer | ((...args: string[]) => Answer | undefined);

export interface MockOptions {
  /** Default: 1818; 0: any free one, see `url`. */
  port?: number;
  /** Default: 127.0.0.1 */
  host?: string;
  /** Frames per second; 0: none. Default: 10 */
  fps?: number;
  /** Milliseconds until answers of background work, and until events that follow. Default: 300 */
  work?: number;
  /** Base64 of JPEG files, sent in turn. */
  frames?: string[];
  answers?: { [Name in keyof Commands]?: ScriptedAnswer | ScriptedAnswer[] };
  /** Milliseconds after the start, and between two. */
  pushes?: { event: keyof PushedEvents | keyof Commands; result?: string; after?: number; every?: number }[];
  /** Gets a line for each text received and sent, frames excepted. */
  log?(line: string): void;
  /** That of the npm package ws, if it can't be imported. */
  WebSocketServer?: new (options: any) => any;
}

/** Starts a mock; fulfilled when it listens. */
export function startMock(options?: MockOptions): Promise<MockServer>;

export class MockServer {
  constructor(options?: MockOptions);
  readonly url: string;
  /** What was received and is a command. */
  readonly requests: { name: keyof Commands; args: string[]; text: string }[];
  start(): Promise<void>;
  /** Ends it, as a crash would; it can be started again. */
  stop(): Promise<void>;
  /** What a command answers from now on, one after the other; the last one remains. None: as usual. */
  script(name: keyof Commands, ...answers: ScriptedAnswer[]): void;
  /** Replaces all that was said by script(). */
  scriptAll(answers: MockOptions['answers']): void;
  /** Sends an event as the server would: to every client, or to the current one. */
  push(event: keyof PushedEvents | keyof Commands, result?: string): void;
  pushFrame(base64?: string): void;
  /** Accepts connections, but answers nothing, not even handshakes. */
  hang(milliseconds?: number): void;
  resume(): void;
  /** Closes all connections. */
  drop(): void;
}
