// SPDX-License-Identifier: MIT
//
// A mock of the device server for developers of pages: the same protocol, driven by the facts of
// commands.json, with answers and faults as a script says. For Node 18 and newer.
import { existsSync, readFileSync } from 'node:fs';
import { createServer } from 'node:http';

const inPackage = new URL('./commands.json', import.meta.url);
const inTree = new URL('../../docs/commands.json', import.meta.url);
const facts = JSON.parse(readFileSync(existsSync(inPackage) ? inPackage : inTree));
const samples = JSON.parse(readFileSync(new URL('./frames.json', import.meta.url)));

const commands = new Map(facts.commands.map((command) => [command.name, command]));
const events = new Map(facts.events.map((event) => [event.id, event]));

const framed = (name, result) => `Begin${name}${result}End${name}`;

const defaults = {
  port: 1818,
  host: '127.0.0.1',
  /** Frames per second; 0: none. */
  fps: 10,
  /** Milliseconds until answers that are sent when the work is done, and until events that follow. */
  work: 300,
  /** Base64 of JPEG files, in turn. */
  frames: samples,
  /** By command: what it answers; see script(). */
  answers: {},
  /** { event, result, after, every }: milliseconds after the start, and between two. */
  pushes: [],
  /** Called with a line for each text received and sent, frames excepted. */
  log: () => {},
};

/** Starts a mock. @returns a promise of it, fulfilled when it listens; rejected if it can't */
export async function startMock(options) {
  const mock = new MockServer(options);
  await mock.start();
  return mock;
}

export class MockServer {
  /** @param options  see defaults; and WebSocketServer: of the package ws, if it can't be imported */
  constructor(options = {}) {
    this.options = { ...defaults, ...options };
    this.scriptAll(this.options.answers);
    this.options.pushes.forEach(({ event, result }) => textOfEvent(event, result)); // throws before any is sent
    this.requests = []; // { name, args, text }, as received
    this.clients = new Set();
    this.current = null;
    this.hanging = false;
    this.held = []; // what arrived while it hung
    this.timers = new Set();
    this.working = new Map(); // by command: requests waiting for its worker
    this.waiting = null; // commands behind one that takes its time; null: none does
    this.reset();
  }

  /** The devices as after a start. */
  reset() {
    this.playing = false;
    this.sendsFrames = true;
    this.recording = false;
    this.scanning = null;
    this.frameNumber = 0;
  }

  get url() { return `ws://${this.options.host}:${this.options.port}`; }

  async start() {
    const { port, host, fps, pushes } = this.options;
    const WebSocketServer = this.options.WebSocketServer || (await import('ws')).WebSocketServer;
    this.sockets = new WebSocketServer({ noServer: true, maxPayload: 128 * 1024 * 1024 });
    this.http = createServer((request, response) => response.writeHead(426).end('This is a WebSocket server.\n'));
    this.http.on('upgrade', (...request) => this.whenAwake(() =>
      this.sockets.handleUpgrade(...request, (socket) => this.joined(socket))));
    this.connections = new Set();
    this.http.on('connection', (connection) => {
      this.connections.add(connection);
      connection.on('close', () => this.connections.delete(connection));
    });
    await new Promise((resolve, reject) => {
      this.http.once('error', reject);
      this.http.listen(port, host, resolve);
    });
    this.options.port = this.http.address().port;
    if (fps > 0)
      this.every(1000 / fps, () => this.playing && this.sendsFrames && this.pushFrame());
    for (const { event, result, after = 0, every } of pushes)
      this.later(after, () => {
        this.push(event, result);
        if (every)
          this.every(every, () => this.push(event, result));
      });
  }

  /** Ends it, as a crash would. It can be started again, on the same port. */
  async stop() {
    this.timers.forEach((timer) => clearTimeout(timer));
    this.timers.clear();
    this.working.clear();
    this.waiting = null;
    this.hanging = false;
    this.held = [];
    this.reset();
    this.clients.clear();
    const closed = new Promise((resolve) => { this.http.close(resolve); });
    this.connections.forEach((connection) => connection.destroy());
    await closed;
  }

  // -- What a script may do --

  /**
   * Says what a command answers from now on: one answer for each request, the last one for all later
   * ones. An answer is the result as a text, or an object:
   *   result         the result
   *   delay          milliseconds until it is sent
   *   drop           nothing is sent
   *   wrong          a text that ends in the middle of the frame
   *   close          the connection is closed instead
   *   hang           the server does nothing any more, for so many milliseconds; true: until resume()
   *   event          the result of the event that follows; false: none follows
   * or a function of the arguments that returns one of these. No answers: as before.
   */
  script(name, ...answers) {
    if (!commands.has(name))
      throw new Error(`there is no command ${name}`);
    if (answers.length > 0)
      this.answers.set(name, answers);
    else
      this.answers.delete(name);
  }

  /** Replaces all that was said by script(). @param answers  an answer, or a list, by command */
  scriptAll(answers) {
    this.answers = new Map();
    for (const [name, answer] of Object.entries(answers))
      this.script(name, ...(Array.isArray(answer) ? answer : [answer]));
  }

  /** Sends an event to those who get it from the server: every client, or the current one. */
  push(event, result) {
    const { to } = events.get(event) || (commands.get(event) || {}).reply || {};
    this.send(to === 'all' ? this.clients : [this.current], textOfEvent(event, result));
  }

  pushFrame(base64) {
    const { frames } = this.options;
    const frame = base64 || frames[this.frameNumber % frames.length];
    this.frameNumber += 1;
    this.whenAwake(() => {
      for (const socket of this.clients) {
        if (socket.bufferedAmount < 2 * frame.length) // as for the server, two may wait
          socket.send(frame);
      }
    });
  }

  /** Accepts connections, but answers nothing, not even handshakes. */
  hang(milliseconds) {
    this.hanging = true;
    if (milliseconds)
      this.later(milliseconds, () => this.resume());
  }

  /** Answers again, first what has arrived meanwhile. */
  resume() {
    this.hanging = false;
    const { held } = this;
    this.held = [];
    held.forEach((act) => this.whenAwake(act));
  }

  /** Closes all connections, as a network would. */
  drop() { this.clients.forEach((socket) => socket.terminate()); }

  // -- Clients and their texts --

  whenAwake(act) {
    if (this.hanging)
      this.held.push(act);
    else
      act();
  }

  joined(socket) {
    this.clients.add(socket);
    socket.on('error', () => {}); // close follows
    socket.on('close', () => this.left(socket));
    socket.on('message', (bytes, binary) => !binary && this.whenAwake(() => this.received(socket, bytes.toString())));
  }

  /** When a client leaves, nobody is current, and the preview stops for all. */
  left(socket) {
    if (!this.clients.delete(socket))
      return;
    this.current = null;
    this.recording = false;
    if (this.playing)
      this.whenAwake(() => this.push('bStopPlay', 'true'));
    this.playing = false;
  }

  send(sockets, text) {
    this.whenAwake(() => {
      for (const socket of sockets) {
        if (!socket)
          continue;
        socket.send(text);
        this.options.log(`< ${text}`);
      }
    });
  }

  received(socket, text) {
    this.options.log(`> ${text}`);
    if (text.startsWith('@')) {
      this.send([socket], '');
    } else if (text.startsWith('#')) {
      this.send([this.current], text.slice(1));
    } else {
      this.current = socket;
      const [, name, rest] = /^([^(]*)(?:\(([^]*))?$/.exec(text);
      const command = commands.get(name);
      if (command)
        this.inOrder(() => this.carryOut(command, (rest || ' ').slice(0, -1), socket, text));
    }
  }

  /** Commands run one after the other, also those of other clients. */
  inOrder(act) {
    if (this.waiting)
      this.waiting.push(act);
    else
      act();
  }

  takeTime(milliseconds, act) {
    this.waiting = [];
    this.later(milliseconds, () => {
      const { waiting } = this;
      this.waiting = null;
      act();
      waiting.forEach((each) => this.inOrder(each));
    });
  }

  carryOut(command, argumentText, socket, text) {
    const { name, split, reply } = command;
    const args = split === 'comma' ? argumentText.split(',') : [argumentText];
    this.requests.push({ name, args, text });
    const answer = this.nextAnswer(command, args);
    if (answer.hang) {
      this.hang(answer.hang === true ? 0 : answer.hang);
    } else if (answer.close) {
      socket.terminate();
    } else if (reply.late && !answer.now) {
      const to = () => (reply.to === 'all' ? this.clients : [this.current]);
      this.work(command, () => this.reply(command, args, answer, to()), answer.delay);
    } else if (answer.delay) {
      this.takeTime(answer.delay, () => this.reply(command, args, answer, [socket]));
    } else {
      this.reply(command, args, answer, [socket]);
    }
  }

  /** { result, and what script() allows }; now: not from a worker */
  nextAnswer(command, args) {
    const { name, reply, tooFew } = command;
    const list = this.answers.get(name) || [];
    let answer = list.length > 1 ? list.shift() : list[0];
    if (typeof answer === 'function')
      answer = answer(...args);
    if (typeof answer !== 'object')
      answer = answer === undefined ? {} : { result: String(answer) };
    const needed = command.arguments.filter(({ optional }) => !optional).length;
    if (args.length < needed && tooFew !== undefined)
      return { result: tooFew, now: true };
    if (name === 'bStopRec' && !this.recording)
      return { result: 'false', now: true, ...answer };
    const states = { isRecording: this.recording, bGetPreviewEnable: this.sendsFrames };
    return { result: name in states ? String(states[name]) : reply.example, ...answer };
  }

  /** One request at a time; of those that wait only the newest is kept, where the server does so. */
  work(command, act, delay = this.options.work) {
    const waiting = this.working.get(command.name);
    if (waiting) {
      waiting.splice(0, command.reply.alone ? waiting.length : 0);
      waiting.push(act);
      return;
    }
    this.working.set(command.name, []);
    const next = (now) => this.later(delay, () => {
      now();
      const [following] = this.working.get(command.name).splice(0, 1);
      if (following)
        next(following);
      else
        this.working.delete(command.name);
    });
    next(act);
  }

  reply(command, args, answer, sockets) {
    const { name, reply } = command;
    if (reply.kind !== 'none' && !answer.drop) {
      const text = framed(name, answer.result);
      this.send(sockets, answer.wrong ? text.slice(0, -4) : text);
    }
    if (answer.result !== 'false')
      this.follow(command, args, answer);
  }

  /** What a command that has worked does to the devices, and the events that follow. */
  follow({ name, pushes = [] }, args, answer) {
    if (/^bStartPlay(?!4)/.test(name))
      this.playing = true;
    else if (name === 'bStopPlay' || name === 'AutoLivingBody')
      this.playing = false;
    else if (name === 'vSetPreviewEnable')
      this.sendsFrames = args[0] !== '0';
    else if (/^(bStartRec|bStopRec)/.test(name))
      this.recording = !name.startsWith('bStop');
    else if (name === 'iAutoScan')
      this.scan(Number(args[0]) > 0);
    else if (answer.event !== false)
      pushes.filter((id) => id.startsWith('After') || id === 'signature')
          .forEach((id) => this.later(this.options.work, () => this.push(id, answer.event ?? eventOf(id, args))));
    if (name === 'AutoLivingBody' && answer.event !== false)
      this.later(this.options.work, () => this.push('AfterbLivingBodyDetectEvent2', answer.event));
  }

  scan(on) {
    clearInterval(this.scanning);
    this.timers.delete(this.scanning);
    let shot = 0;
    this.scanning = on ? this.every(this.options.work, () => this.push('iAutoScan', shot += 1)) : null;
  }

  // -- Timers --

  later(milliseconds, act) {
    const timer = setTimeout(() => {
      this.timers.delete(timer);
      act();
    }, milliseconds);
    this.timers.add(timer);
  }

  every(milliseconds, act) {
    const timer = setInterval(act, milliseconds);
    this.timers.add(timer);
    return timer;
  }
}

/** The text of an event, or of an answer that nobody asked for; without a result, that of the reference. */
function textOfEvent(name, result) {
  const command = commands.get(name);
  if (!events.has(name) && !command)
    throw new Error(`there is no event ${name}`);
  const { form = 'Begin', example } = events.get(name) || command.reply;
  const text = result === undefined ? example : result;
  if (text === undefined)
    throw new Error(`${name} needs a result`);
  return form.startsWith('Begin') ? framed(name, text) : text;
}

/** An event's result that belongs to a request. */
function eventOf(id, args) {
  if (id === 'signature')
    return JSON.stringify({
      status: 'signed', code: 0, message: 'signed by the mock', pdfpath: args[0], time: new Date().toISOString(),
      signedpath: args[0].replace(/\.pdf$/i, '-signed.pdf'), png: 'iVBORw0KGgo=', service: 'mock',
    });
  const asked = /(?:^|,)id=([^,]*)/.exec(args.join(','));
  const { example } = events.get(id);
  return asked ? example.replace(/id=[^,]*/, `id=${asked[1]}`) : example;
}
