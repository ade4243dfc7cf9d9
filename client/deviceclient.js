// SPDX-License-Identifier: MIT
//
// The client of the device server: commands as promises, pushed texts as events, and a preview.
//
//   errors.js   what can go wrong
//   texts.js    commands and answers on the wire
//   turns.js    whose answer it is: one call at a time, in all tabs
//   jobs.js     background work as promises
//   preview.js  draws the newest frame
//   this file   the connection, pending calls, events
//
// For Chromium 80 and newer, and for Node with its own WebSocket class or one passed as an option.
import { commands, events } from './commands.js';
import {
  AbortError, ArgumentError, CallTimeoutError, ClosedError, ConnectionLostError, FailedError,
  RefusedByBrowserError, ServerNotRunningError,
} from './errors.js';
import { jobs } from './jobs.js';
import { Preview } from './preview.js';
import { commandText, entryOf, frameNames, frameStart, jsonOr, parseAnswer, resultOf } from './texts.js';
import {
  answerExpected, expectAnswer, expectNoAnswer, expectNone, hearTabs, sleep, takeTurn, tellTabs,
} from './turns.js';

export { commands, events } from './commands.js';
export {
  AbortError, ArgumentError, CallTimeoutError, ClosedError, ConnectionLostError, DeviceError, FailedError,
  RefusedByBrowserError, ServerNotRunningError, UnknownCommandError,
} from './errors.js';
export { Preview } from './preview.js';
export { commandText, parseAnswer } from './texts.js';

const defaults = {
  url: 'ws://127.0.0.1:1818',
  /** Milliseconds from a call to its answer; more for commands known to take longer. */
  timeout: 10000,
  /** Milliseconds for an attempt to connect; more while the browser asks its user. */
  connectTimeout: 15000,
  /** Milliseconds before each reconnection attempt; the last one repeats. Empty: no attempts. */
  retryDelays: [500, 1000, 2000, 4000, 8000, 15000],
};

/** Default facts, for a command that is sent raw and not known. */
const rawFact = { reply: 'text', late: true };

/** The maximum of timers, about 24 days; anything longer, even Infinity, would fire at once. */
const maxTimer = 2 ** 31 - 1;

/** The client's own events, which a text relayed by another page must not imitate. */
const ownEvents = new Set(['open', 'close', 'frame', 'text', 'late', 'message', 'drawn']);

/** A connection that ends sooner counts as a failed attempt, so that attempts slow down. */
const stableMilliseconds = 5000;

/** How long an attempt waits for the user whom the browser asks, in milliseconds. */
const promptMilliseconds = 120000;

/** How often a call looks whether the answer of an earlier one has come, in milliseconds. */
const lookAgain = 200;

/**
 * A page's connection to the device server.
 *
 * Events, heard with on(), once() and, for frames, frames():
 *   open                 connected or reconnected; the server has stopped the preview meanwhile
 *   close    error       the connection was lost, or an attempt failed; the error has retryIn
 *   frame    base64      a preview frame, JPEG
 *   <name>   result      a framed text that no call waits for: vSetCapturePin, iAutoScan, ...
 *   text     text, json  a text without a frame: the signature service's, the browser helper's
 *   late     {name, result}  an answer whose call has ended before
 *   message  text        every text as received
 *   drawn    preview     a Preview has drawn a frame
 */
export class DeviceClient {
  /**
   * @param options  url, timeout, connectTimeout, retryDelays (all in milliseconds), and WebSocket:
   *                 the class to use if there is no global one
   */
  constructor(options = {}) {
    this.options = { ...defaults, ...options };
    this.listeners = new Map();
    this.calls = new Set(); // that have not ended: to be answered, or to be sent
    this.waiting = new Map(); // sent calls by the name of their answer, oldest first; an ended one
                              // remains while its answer is still to come
    this.socket = null;
    this.state = 'closed'; // closed, connecting, open, waiting (to reconnect)
    this.lastError = null;
    this.failures = 0; // attempts in a row without a stable connection
    this.everOpen = false;
    this.connection = null; // promise of the latest attempt
    this.abandonTry = null; // rejects it
    this.retryTimer = 0;
  }

  /** Listens to an event. @returns a function that removes the listener */
  on(event, listener) {
    if (!this.listeners.has(event))
      this.listeners.set(event, new Set());
    this.listeners.get(event).add(listener);
    return () => this.off(event, listener);
  }

  off(event, listener) {
    const listeners = this.listeners.get(event);
    if (listeners)
      listeners.delete(listener);
  }

  /**
   * Waits for the next event.
   *
   * @param options  timeout in milliseconds (none by default), signal, accept(value): whether it is
   *                 the one that is waited for
   * @returns a promise of its value; rejected by the time-out, the signal or close()
   */
  once(event, { timeout, signal, accept = () => true } = {}) {
    return this.pending({ name: event }, { timeout, signal }, (done) =>
      this.on(event, (...values) => accept(...values) && done(null, values[0])));
  }

  /**
   * The frames, for "for await": always the newest one, so a slow loop misses some. Ends with close();
   * `timeout` is that between two frames.
   */
  async* frames(options) {
    let frame = null;
    const end = this.on('frame', (newest) => { frame = newest; });
    try {
      for (;;) {
        if (frame === null)
          await this.once('frame', options);
        const newest = frame;
        frame = null;
        yield newest;
      }
    } catch (error) {
      if (!(error instanceof ClosedError))
        throw error;
    } finally {
      end();
    }
  }

  /** An exception in a listener is reported like any of the page's, and affects nothing else. */
  emit(event, ...values) {
    for (const listener of Array.from(this.listeners.get(event) || [])) {
      try {
        listener(...values);
      } catch (error) {
        setTimeout(() => { throw error; });
      }
    }
  }

  /**
   * Connects, and reconnects after failures and lost connections until close() is called.
   *
   * @returns a promise that settles with the first attempt: rejected with ServerNotRunningError or
   *          RefusedByBrowserError
   */
  connect() {
    if (this.state === 'open')
      return Promise.resolve();
    if (this.state !== 'connecting')
      this.tryToConnect();
    return this.connection;
  }

  /** Ends the connection and all attempts, and rejects pending calls. */
  close() {
    clearTimeout(this.retryTimer);
    const { socket } = this;
    this.socket = null;
    this.state = 'closed';
    this.failures = 0;
    if (socket)
      socket.close();
    if (this.abandonTry)
      this.abandonTry(new ClosedError()); // no effect once the attempt has settled
    this.waiting.clear();
    this.calls.forEach((call) => call.end(new ClosedError()));
  }

  /**
   * Sends a command, after connecting if needed.
   *
   * @returns a promise of its result, in the command's type; resolves to undefined, once it is sent,
   *          for commands that are never answered
   */
  call(name, ...args) {
    return this.callWith({}, name, ...args);
  }

  /**
   * call() with options: timeout, in milliseconds from now on; signal, an AbortSignal; raw: sends any
   * name with unchecked arguments, and resolves to the result's text.
   */
  async callWith({ timeout, signal, raw } = {}, name, ...args) {
    const text = raw ? `${name}(${args.join(',')})` : commandText(name, args);
    const known = entryOf(commands, name);
    const fact = known && (!raw || known.reply !== 'none') ? known : rawFact;
    const call = {
      name, answer: name, fact, raw, silent: fact.reply === 'none', turn: turnOf(name, fact),
      start: () => this.socket.send(text),
    };
    return this.request(call, { timeout: timeout || Math.max(fact.timeout || 0, this.options.timeout), signal });
  }

  /**
   * Calls a command that starts something in the background, and waits for the event that ends it.
   *
   * @param event    its name; 'text' for texts without a frame
   * @param options  seconds from now on, or timeout, in milliseconds; signal; accept(value, text):
   *                 whether an event is the one that is waited for
   * @returns a promise of the event's value; rejected with FailedError if the command fails
   */
  async eventAfter(event, { seconds = 60, timeout = seconds * 1000, signal, accept } = {}, name, ...args) {
    const start = async () => {
      const started = await this.callWith({ signal }, name, ...args);
      if (started === false)
        throw new FailedError(name, started);
    };
    const turn = { name: event, shared: true, answered: 0 };
    const fact = { late: true, mark: (entryOf(commands, name) || {}).mark };
    return this.request({ name, answer: event, fact, event: true, accept, turn, start }, { timeout, signal });
  }

  /** Sends a text unchanged: "@" asks for the shown page's data, "#..." goes to the current page. */
  async send(text) {
    if (this.state !== 'open')
      await this.whenOpen();
    this.socket.send(text);
  }

  /** Draws the frames; see Preview. */
  preview(target, options) {
    return new Preview(this, target, options);
  }

  // -- Calls --

  /**
   * A promise that always ends: by done(error, value), time-out, signal or close().
   *
   * @param call   name, for messages; gets end(error, value)
   * @param begin  called with done; may return a function to be called at the end
   */
  pending(call, { timeout, signal }, begin) {
    return new Promise((resolve, reject) => {
      let timer = 0;
      let clean;
      const abort = () => call.end(new AbortError(call.name, signal.reason));
      const late = () => call.end(new CallTimeoutError(call.name, timeout, call.phase, call.fact));
      call.end = (error, value) => {
        if (call.ended)
          return;
        call.ended = true;
        clearTimeout(timer);
        this.calls.delete(call);
        if (signal)
          signal.removeEventListener('abort', abort);
        if (error)
          reject(error);
        else
          resolve(value);
        if (clean)
          clean();
      };
      this.calls.add(call);
      if (signal && signal.aborted) {
        abort();
        return;
      }
      if (signal)
        signal.addEventListener('abort', abort);
      if (timeout)
        timer = setTimeout(late, Math.min(timeout, maxTimer));
      clean = begin(call.end);
      if (call.ended && clean)
        clean();
    });
  }

  /** A call that is sent: its turn, the connection, its answer. */
  request(call, options) {
    return this.pending(call, options, () => {
      this.begin(call).catch((error) => call.end(error));
      return () => this.leave(call);
    });
  }

  /** Sends a call: at once, if it needs no turn and there is a connection. */
  async begin(call) {
    const { turn } = call;
    if (turn) {
      call.phase = 'turn';
      call.endTurn = await takeTurn(this.keyOf(turn.name), turn.shared);
    }
    if (turn && turn.shared && !call.ended)
      call.unhear = hearTabs((message) => this.heard(message));
    while (!call.ended && !this.mayBeSent(call))
      await (this.state === 'open' ? sleep(lookAgain) : this.whenOpen());
    if (call.ended) {
      this.leave(call);
      return;
    }
    call.phase = 'answer';
    if (call.silent) {
      call.start();
      call.end();
      return;
    }
    const earlier = this.waiting.get(call.answer) || [];
    // After the turn of an ended call its answer comes no more.
    this.waiting.set(call.answer, [...earlier.filter(({ ended }) => !ended || !turn), call]);
    call.sent = true;
    if (call.fact.late && call.fact.mark)
      this.mark(call);
    if (turn && turn.answered)
      expectAnswer(this.keyOf(turn.name), turn.answered);
    await call.start();
  }

  /**
   * Sends a harmless command before that of a call: until it is answered, what arrives are answers of
   * earlier requests, perhaps those of another tab, from which this one got the turn just now.
   */
  mark(call) {
    const { mark } = call.fact;
    call.early = true;
    const marking = { name: mark, end: () => { call.early = false; } };
    this.waiting.set(mark, [...(this.waiting.get(mark) || []), marking]);
    this.socket.send(`${mark}()`);
  }

  mayBeSent(call) {
    const { turn } = call;
    if (this.state !== 'open')
      call.phase = 'connection';
    else if (turn && turn.answered && answerExpected(this.keyOf(turn.name), turn.answered))
      call.phase = 'earlier';
    else
      return true;
    return false;
  }

  /**
   * A call that has ended gives up its turn. It stays in the list of those that wait if its answer is
   * certain to arrive, so that a later call of the same name does not get it.
   */
  leave(call) {
    const { fact, turn, sent, endTurn, unhear } = call;
    if (sent && fact.late && !(turn && turn.answered))
      this.waiting.set(call.answer, (this.waiting.get(call.answer) || []).filter((each) => each !== call));
    if (unhear)
      unhear();
    if (endTurn)
      endTurn();
  }

  /** Of a turn. */
  keyOf(name) {
    return `${this.options.url} ${name}`;
  }

  /** Ends the calls that were sent: most answers were for the connection that is lost. */
  rejectSent() {
    this.waiting.clear();
    for (const call of this.calls) {
      if (call.sent)
        call.end(new ConnectionLostError(call.name));
    }
  }

  // -- Received texts --

  received(text) {
    this.emit('message', text);
    if (text.startsWith(frameStart)) {
      this.emit('frame', text);
      return;
    }
    const answer = parseAnswer(text);
    if (!answer || ownEvents.has(answer.name)) {
      const value = jsonOr(text);
      const json = value !== null && typeof value === 'object' ? value : undefined;
      this.emit('text', text, json);
      this.answer('text', json || text, text);
      return;
    }
    const name = frameNames.get(answer.name) || answer.name;
    const fact = entryOf(commands, name);
    if (fact && fact.mistakable)
      expectNoAnswer(this.keyOf(name));
    if (!this.framed(name, answer.result) && (fact ? fact.mistakable === 'current' : entryOf(events, name)))
      tellTabs({ url: this.options.url, name, result: answer.result }); // for the tab that asked
  }

  /** A framed text. @returns whether a call has waited for it */
  framed(name, text) {
    const result = resultOf(name, text);
    const call = this.answer(name, result, text);
    if (!call || call.event)
      this.emit(name, result);
    return Boolean(call);
  }

  /** Another tab was the current client when a result of a call of this one arrived. */
  heard({ url, name, result }) {
    if (url === this.options.url && this.waiting.has(name) && this.waiting.get(name).length > 0)
      this.framed(name, result);
  }

  /** Ends the call that waits for an answer or event. @returns the call, if there is one */
  answer(name, value, text) {
    const calls = this.waiting.get(name) || [];
    const call = calls.find(({ early, ended, accept }) => !early && (ended || !accept || accept(value, text)));
    if (!call)
      return undefined;
    calls.splice(calls.indexOf(call), 1);
    if (call.ended)
      this.emit('late', { name, result: value });
    else
      call.end(null, call.raw ? text : value);
    return call;
  }

  // -- The connection --

  async whenOpen() {
    await this.connect();
    if (this.state !== 'open')
      throw new ClosedError(); // by a listener
  }

  tryToConnect() {
    clearTimeout(this.retryTimer);
    this.state = 'connecting';
    this.connection = new Promise((resolve, reject) => {
      this.abandonTry = reject;
      this.openSocket(resolve, reject);
    });
    this.connection.catch(() => {}); // callers of connect() get the error
  }

  openSocket(resolve, reject) {
    const { url, connectTimeout } = this.options;
    const WebSocketClass = this.options.WebSocket || globalThis.WebSocket;
    let socket;
    try {
      socket = new WebSocketClass(url);
    } catch (error) {
      this.state = 'closed';
      this.lastError = error.name === 'SecurityError' ? new RefusedByBrowserError(url, error.message)
        : new ArgumentError('url', error.message);
      reject(this.lastError);
      return;
    }
    this.socket = socket;
    const startedAt = Date.now();
    let openedAt = 0;
    let gaveUp = false;
    const giveUp = async () => {
      const asks = !isLocalPage() && Date.now() - startedAt < promptMilliseconds
        && await permissionState() === 'prompt';
      if (socket.readyState !== 0)
        return; // the user has answered by now
      gaveUp = !asks;
      if (asks)
        timer = setTimeout(giveUp, connectTimeout);
      else
        socket.close();
    };
    let timer = setTimeout(giveUp, connectTimeout);
    socket.onopen = () => {
      clearTimeout(timer);
      if (socket !== this.socket)
        return;
      openedAt = Date.now();
      this.everOpen = true;
      this.state = 'open';
      resolve();
      this.emit('open');
    };
    socket.onmessage = ({ data }) => {
      if (socket === this.socket)
        this.received(String(data));
    };
    socket.onerror = () => {}; // onclose follows; Node requires a listener
    socket.onclose = async () => {
      clearTimeout(timer);
      if (socket !== this.socket)
        return;
      if (openedAt) {
        if (Date.now() - openedAt >= stableMilliseconds)
          this.failures = 0;
        this.rejectSent();
        this.retryLater(new ConnectionLostError());
        return;
      }
      const error = await whyNoConnection(url, this.everOpen);
      if (socket !== this.socket)
        return; // closed meanwhile
      if (!gaveUp && error instanceof ServerNotRunningError)
        expectNone(`${url} `);
      this.retryLater(error);
      reject(error);
    };
  }

  retryLater(error) {
    const { retryDelays } = this.options;
    this.socket = null;
    this.lastError = error;
    if (retryDelays.length === 0) {
      this.state = 'closed';
    } else {
      this.state = 'waiting';
      error.retryIn = retryDelays[Math.min(this.failures, retryDelays.length - 1)];
      this.failures += 1;
      this.retryTimer = setTimeout(() => this.tryToConnect(), error.retryIn);
    }
    this.emit('close', error);
  }
}

Object.assign(DeviceClient.prototype, jobs);

/**
 * The turn of a command whose answers could be mixed up: its name; whether other tabs may get them;
 * `answered`, in how many milliseconds an answer that is not to be taken for another has come.
 */
function turnOf(name, { mistakable, alone, dropped, always, timeout }) {
  if (!mistakable && !alone)
    return undefined;
  return { name, shared: Boolean(mistakable), answered: mistakable && !dropped && !always ? timeout : 0 };
}

/** The browser's permission for this page to reach this machine: granted, denied, prompt or ''. */
async function permissionState() {
  const permissions = globalThis.navigator && globalThis.navigator.permissions;
  if (!permissions)
    return '';
  for (const name of ['loopback-network', 'local-network-access']) {
    try {
      return (await permissions.query({ name })).state;
    } catch {
      // unknown to this browser
    }
  }
  return '';
}

/**
 * Browsers give no reason. The permission is the only hint, and no hint where none is needed, as
 * between a page and a server on the same machine.
 */
async function whyNoConnection(url, everOpen) {
  if (!everOpen && !isLocalPage() && await permissionState() === 'denied')
    return new RefusedByBrowserError(url, 'this page has no permission to reach this machine, '
        + 'unless it needs none and the device server is not running');
  return new ServerNotRunningError(url);
}

/** Whether this page comes from this machine: no browser asks its user for it. */
function isLocalPage() {
  const { protocol, hostname } = globalThis.location || {};
  return protocol === 'file:' || /^(localhost|127\..*|\[::1\])$/.test(hostname);
}
