// SPDX-License-Identifier: MIT
//
// The console: tries commands on the device server and shows its preview.
//
//   Commands     the known ones, and how commands and answers read
//   Connection   the WebSocket, and the way back after it was lost
//   Exchanges    commands that wait for their answer
//   Preview      the newest frame, and figures about all of them
//   Log          what was sent and what came back
//   Page         ties these to the elements of index.html
//
// Runs from file:// and in Chromium 80: a plain script, no newer syntax, no newer functions.
// What the server sends is shown through textContent and value only, never read as HTML.

'use strict';

// ---- Commands -----------------------------------------------------------------------------------

/** The commands offered while typing: an example that can be sent as it stands, what it does. */
const COMMANDS = [
  ['bStartPlay()', 'start the main camera'],
  ['bStartPlay2()', 'start camera 2'],
  ['bStartPlay3()', 'start camera 3'],
  ['bStartPlay5()', 'start camera 5'],
  ['bStartPlay6()', 'start camera 6'],
  ['bStartPlay8()', 'start camera 8'],
  ['bStartPlay9()', 'start camera 9'],
  ['bStartPlayOpen()', 'start the dual camera: main and second side by side'],
  ['bStartPlayRotate(90)', 'set the rotation, in degrees clockwise, and start the main camera'],
  ['bStopPlay()', 'stop the camera and a recording'],
  ['bStartPlay4()', 'start the fourth source, beside the preview'],
  ['bStopPlay4()', 'stop the fourth source'],
  ['bAVPreview(0,0)', 'audio and video preview, two numbers'],
  ['vSetPreviewEnable(1)', 'send frames: 1 yes, 0 no'],
  ['bGetPreviewEnable()', 'are frames sent?'],
  ['vSetPreViewSize(800,600)', 'width and height of the frames, at least 400 and 300'],
  ['vZoomIn()', 'smaller frames, by the zoom factor'],
  ['vZoomOut()', 'larger frames, by the zoom factor'],
  ['vZoomOriginal()', 'frames of 800×600, zoom factor 10'],
  ['vSetZoomFactor(10)', 'step of zooming in and out, in percent'],
  ['vSetImageDispFlag(1)', 'display flag of the device library: 1 on, 0 off'],
  ['displayVideoPara()', 'accepted, not supported'],
];

const KNOWN_NAMES = COMMANDS.map(([example]) => commandName(example));

/** Answers that come under another name than the command's. */
const ANSWER_ALIASES = new Map([['bDualCameraOpen', 'bStartPlayOpen']]);

/** Every JPEG file begins with the bytes FF D8 FF, and so every frame with these characters. */
const FRAME_START = '/9j/';

/** Room for the longest name; the search for the end of an answer looks no further back. */
const NAME_LIMIT = 100;

/** The name in a text to send as the server reads it; '' for its two kinds of other messages. */
function commandName(text) {
  if (text.startsWith('@') || text.startsWith('#'))
    return '';
  const bracket = text.indexOf('(');
  return bracket < 0 ? text : text.slice(0, bracket);
}

/**
 * Takes "Begin<name><result>End<name>" apart.
 *
 * Nothing parts the name from the result, so the end of the text tells it. Results may hold "End"
 * and names may end with it: the last "End" that fits counts.
 *
 * @returns {{name: string, result: string}|null} null when the text is no framed answer
 */
function parseAnswer(text) {
  if (!text.startsWith('Begin'))
    return null;
  const nameStart = 'Begin'.length;
  let end = text.lastIndexOf('End');
  while (end >= nameStart && text.length - end < NAME_LIMIT) {
    const name = text.slice(end + 'End'.length);
    const resultStart = nameStart + name.length;
    if (name && resultStart <= end && text.startsWith(name, nameStart))
      return { name, result: text.slice(resultStart, end) };
    end = text.lastIndexOf('End', end - 1);
  }
  return null;
}

/** What may be wrong with a command that got no answer. */
function noAnswerHint(name) {
  if (name !== name.trim())
    return 'There is a blank around the name; the server takes it as a part of it.';
  if (KNOWN_NAMES.includes(name))
    return 'The name is known. The server may be busy, or another page sent a command meanwhile '
        + 'and got the answer.';
  const meant = KNOWN_NAMES.find((known) => known.toLowerCase() === name.toLowerCase());
  if (meant)
    return `Did you mean ${meant}? Upper and lower case count.`;
  return 'A name that the server doesn’t know gets no answer. This one is not in the list of this '
      + 'page.';
}

/** What is likely not meant in a text that is about to be sent; '' when nothing is. */
function typingHint(text) {
  if (commandName(text) && text.includes('(') && !text.endsWith(')'))
    return 'The server drops the last character of the arguments, whatever it is: end with “)”.';
  return '';
}

// ---- Connection ---------------------------------------------------------------------------------

const DEFAULT_ADDRESS = 'ws://127.0.0.1:1818';
const DEFAULT_PORT = 1818;

/** Seconds from one try to connect to the next; the last one repeats. */
const RETRY_SECONDS = [1, 2, 4, 8, 15];

/** A try that takes longer has failed, as with a firewall that swallows it. */
const CONNECT_MILLISECONDS = 10000;

/** A connection that ends sooner counts as a failed try, so that the retries slow down. */
const STABLE_MILLISECONDS = 5000;

/** A typed address as a URL text, with what was left out; '' when it is none. */
function completeAddress(typed) {
  let text = typed.trim();
  if (/^[\w.-]+$/.test(text))
    text += `:${DEFAULT_PORT}`;
  if (!text.includes('://'))
    text = `ws://${text}`;
  try {
    const url = new URL(text);
    return ['ws:', 'wss:'].includes(url.protocol) && url.hostname && !url.hash ? text : '';
  } catch {
    return '';
  }
}

/** One WebSocket at a time, opened again after it was lost until close() is called. */
class Connection {
  /**
   * @param listener  changed(note): the state is another, note is a line for the log or '';
   *                  received(data): a message
   */
  constructor(listener) {
    this.listener = listener;
    this.state = 'closed'; // closed, connecting, open, waiting (for the next try)
    this.address = '';
    this.failures = 0; // tries in a row without a stable connection
    this.unreachable = false; // the latest try failed
    this.reason = ''; // why the browser refuses even to try
    this.nextTry = 0; // Date.now() of it, while waiting
    this.socket = null;
    this.retryTimer = 0;
  }

  open(address) {
    this.drop();
    this.address = address;
    this.failures = 0;
    this.unreachable = false;
    this.connect();
  }

  close() {
    const note = this.state === 'open' ? 'Disconnected' : '';
    this.drop();
    this.unreachable = false;
    this.change('closed', note);
  }

  /** @returns whether the text was handed to the socket */
  send(text) {
    if (this.state !== 'open' || this.socket.readyState !== WebSocket.OPEN)
      return false;
    this.socket.send(text);
    return true;
  }

  connect() {
    clearTimeout(this.retryTimer);
    this.reason = '';
    let socket;
    try {
      socket = new WebSocket(this.address);
    } catch (error) { // the address, or ws: from a page that came by https
      this.unreachable = true;
      this.reason = error.message;
      this.change('closed', `Can’t connect to ${this.address}: ${error.message}`);
      return;
    }
    this.socket = socket;
    let opened = 0;
    const tooLong = setTimeout(() => socket.close(), CONNECT_MILLISECONDS);
    socket.onopen = () => {
      clearTimeout(tooLong);
      if (socket !== this.socket)
        return;
      opened = performance.now();
      this.unreachable = false;
      this.change('open', `Connected to ${this.address}`);
    };
    socket.onmessage = (event) => {
      if (socket === this.socket)
        this.listener.received(event.data);
    };
    socket.onclose = (event) => {
      clearTimeout(tooLong);
      if (socket !== this.socket)
        return;
      if (opened && performance.now() - opened >= STABLE_MILLISECONDS)
        this.failures = 0;
      this.retryLater(opened ? lossNote(event) : '');
    };
    this.change('connecting', '');
  }

  /** @param loss  what to say when a connection was lost; '' when there was none */
  retryLater(loss) {
    this.socket = null;
    const firstFailure = !loss && !this.unreachable;
    this.unreachable = !loss;
    const seconds = RETRY_SECONDS[Math.min(this.failures, RETRY_SECONDS.length - 1)];
    this.failures += 1;
    this.nextTry = Date.now() + seconds * 1000;
    this.retryTimer = setTimeout(() => this.connect(), seconds * 1000);
    this.change('waiting', loss || (firstFailure ? `Can’t connect to ${this.address}` : ''));
  }

  /** Ends what is under way and hears no more of it. */
  drop() {
    clearTimeout(this.retryTimer);
    const socket = this.socket;
    this.socket = null;
    if (socket)
      socket.close();
  }

  change(state, note) {
    this.state = state;
    this.listener.changed(note);
  }
}

function lossNote(closeEvent) {
  const reason = closeEvent.reason ? `, ${closeEvent.reason}` : '';
  return `Connection lost (code ${closeEvent.code}${reason})`;
}

// ---- Exchanges ----------------------------------------------------------------------------------

/** A command without an answer for so long gets a hint; the answer may still come. */
const LATE_MILLISECONDS = 5000;

/** More commands than this don't wait at a time; the oldest is given up. */
const WAITING_LIMIT = 500;

/** Finds the command that an answer belongs to; the protocol has nothing but the name for it. */
class Exchanges {
  constructor() {
    this.waiting = []; // { name, sent, late, timer, told }, oldest first
  }

  /**
   * @param told  called with 'answered', 'late' (perhaps 'answered' follows), or 'lost' when it is
   *              given up before it was late
   */
  sent(name, told) {
    const exchange = { name, sent: performance.now(), late: false, timer: 0, told };
    exchange.timer = setTimeout(() => {
      exchange.late = true;
      told('late');
    }, LATE_MILLISECONDS);
    this.waiting.push(exchange);
    if (this.waiting.length > WAITING_LIMIT)
      this.giveUp(this.waiting.splice(0, 1));
  }

  /** @returns milliseconds since the command was sent; null when none waits for this name */
  answered(answerName) {
    const name = ANSWER_ALIASES.get(answerName) || answerName;
    const ofName = (exchange) => exchange.name === name;
    // One whose answer went to another page must not take the answers of all that follow.
    const exchange = this.waiting.find((each) => ofName(each) && !each.late)
        || this.waiting.find(ofName);
    if (!exchange)
      return null;
    clearTimeout(exchange.timer);
    this.waiting.splice(this.waiting.indexOf(exchange), 1);
    exchange.told('answered');
    return performance.now() - exchange.sent;
  }

  /** The connection is gone, and with it every answer. */
  giveUpAll() {
    this.giveUp(this.waiting.splice(0));
  }

  giveUp(given) {
    for (const exchange of given) {
      clearTimeout(exchange.timer);
      if (!exchange.late)
        exchange.told('lost');
    }
  }
}

// ---- Preview ------------------------------------------------------------------------------------

/** Without a frame for so long the picture is called a still one. */
const STILL_MILLISECONDS = 2000;

/** Draws the newest frame. While one is being decoded, only the newest of those after it waits. */
class Preview {
  /** @param brokenFrame  called with the first frame of a series that can't be read */
  constructor(canvas, brokenFrame) {
    this.canvas = canvas;
    this.context = canvas.getContext('2d');
    this.brokenFrame = brokenFrame;
    this.waiting = null; // base64 text of the frame to draw next
    this.decoding = false;
    this.shown = null; // of the frame on the canvas: { bytes (Uint8Array), width, height, time }
    this.lastBroken = false;
    this.received = 0;
    this.skipped = 0;
    this.broken = 0;
    this.lastArrival = 0;
    this.rate = 0; // frames per second
    this.measured = { received: 0, at: performance.now() };
  }

  /** @param base64  the text of one JPEG, as the server sent it */
  frame(base64) {
    this.received += 1;
    this.lastArrival = performance.now();
    if (this.waiting !== null)
      this.skipped += 1;
    this.waiting = base64;
    this.drawWaiting();
  }

  /** Draws until nothing waits. A hidden page decodes nothing. */
  async drawWaiting() {
    if (this.decoding)
      return;
    this.decoding = true;
    while (this.waiting !== null && !document.hidden) {
      const base64 = this.waiting;
      this.waiting = null;
      try {
        await this.draw(base64);
        this.lastBroken = false;
      } catch (error) {
        this.broken += 1;
        if (!this.lastBroken)
          this.brokenFrame(base64, error);
        this.lastBroken = true;
      }
    }
    this.decoding = false;
  }

  async draw(base64) {
    const bytes = bytesOf(base64);
    const bitmap = await createImageBitmap(new Blob([bytes], { type: 'image/jpeg' }));
    if (this.canvas.width !== bitmap.width || this.canvas.height !== bitmap.height) {
      this.canvas.width = bitmap.width;
      this.canvas.height = bitmap.height;
    }
    this.context.drawImage(bitmap, 0, 0);
    this.shown = { bytes, width: bitmap.width, height: bitmap.height, time: new Date() };
    bitmap.close();
  }

  /** Takes the rate anew; call it about once a second. */
  measure() {
    const now = performance.now();
    const seconds = (now - this.measured.at) / 1000;
    if (seconds > 0)
      this.rate = (this.received - this.measured.received) / seconds;
    this.measured = { received: this.received, at: now };
  }

  isLive() {
    return this.received > 0 && performance.now() - this.lastArrival < STILL_MILLISECONDS;
  }
}

// ---- Log ----------------------------------------------------------------------------------------

const LOG_ENTRIES = 500;

/** Answers may be whole pictures: beyond so many characters in all, the oldest entries go. */
const LOG_CHARACTERS = 32e6;

/** Longer texts are shortened in the list. */
const LOG_TEXT = 160;

/** Results that stand out. */
const RESULT_CLASSES = new Map([['true', 'true'], ['false', 'false'], ['', 'nothing']]);

const DIRECTIONS = { sent: '→', answer: '←', pushed: '←', note: '•' };

/** The last entries, newest at the bottom; stays at the bottom unless someone scrolled up. */
class Log {
  /**
   * @param view  elements: list, latest (button), empty (shown without entries)
   * @param showWhole  called with an entry whose text the list shortens
   */
  constructor(view, showWhole) {
    this.view = view;
    this.showWhole = showWhole;
    this.entries = [];
    this.characters = 0;
    this.changes = []; // to the list, made together before the next picture of the page
    this.atEnd = true;
    view.list.addEventListener('scroll', () => this.setAtEnd(this.isAtEnd()));
    view.latest.addEventListener('click', () => this.goToEnd());
    window.addEventListener('resize', () => this.atEnd && this.goToEnd());
  }

  /**
   * @param kind  sent, answer, pushed (nobody here asked for it) or note
   * @param parts  name: of the answer or event; text: the rest; raw: as sent or received;
   *               status: for the last column; statusHelp: its tooltip; hint: a line of advice
   */
  add(kind, parts) {
    const entry = { kind, time: new Date(), name: '', raw: parts.text, status: '', hint: '',
      row: null, ...parts };
    this.entries.push(entry);
    this.characters += entry.raw.length;
    while (this.entries.length > LOG_ENTRIES
        || (this.characters > LOG_CHARACTERS && this.entries.length > 1))
      this.dropOldest();
    this.change(() => {
      if (!entry.dropped)
        this.view.list.append(this.rowOf(entry));
    });
    return entry;
  }

  /** Changes the last column of an entry and its line of advice; '' for none. */
  update(entry, status, hint) {
    entry.status = status;
    entry.hint = hint;
    this.change(() => entry.row && fillStatus(entry));
  }

  clear() {
    while (this.entries.length)
      this.dropOldest();
    this.change(() => {});
  }

  /** All entries as text, one line each, fields parted by tabs. */
  asText() {
    const line = (entry) => [
      `${day(entry.time)} ${clock(entry.time)}`,
      { sent: '->', answer: '<-', pushed: '<-', note: '--' }[entry.kind],
      entry.raw.replace(/\r?\n/g, '\\n'),
      [entry.status, entry.hint].filter(Boolean).join('. '),
    ].join('\t').trimEnd();
    return this.entries.map((entry) => `${line(entry)}\n`).join('');
  }

  dropOldest() {
    const entry = this.entries.shift();
    entry.dropped = true;
    this.characters -= entry.raw.length;
    entry.raw = ''; // while the page is hidden, changes to make keep the entry itself for long
    entry.text = '';
    if (entry.row)
      this.change(() => entry.row.remove());
  }

  change(apply) {
    this.changes.push(apply);
    if (this.changes.length === 1)
      requestAnimationFrame(() => this.applyChanges());
    else if (this.changes.length > 4 * LOG_ENTRIES) // a hidden page draws no picture for hours
      this.applyChanges();
  }

  applyChanges() {
    for (const apply of this.changes.splice(0))
      apply();
    this.view.empty.hidden = this.entries.length > 0;
    if (this.atEnd)
      this.goToEnd();
    else
      this.setAtEnd(this.isAtEnd());
  }

  isAtEnd() {
    const list = this.view.list;
    return list.scrollHeight - list.scrollTop - list.clientHeight < 8;
  }

  setAtEnd(atEnd) {
    this.atEnd = atEnd;
    this.view.latest.hidden = atEnd;
  }

  goToEnd() {
    this.view.list.scrollTop = this.view.list.scrollHeight;
    this.setAtEnd(true);
  }

  rowOf(entry) {
    const row = element('li', entry.kind);
    row.append(element('time', '', clock(entry.time)),
               element('span', 'direction', DIRECTIONS[entry.kind]));
    const body = element('span', 'body');
    if (entry.name)
      body.append(element('b', 'name', entry.name), ' ');
    const shown = shorten(entry.text);
    const text = element('span', 'text', shown || '(empty)');
    if (entry.name && RESULT_CLASSES.has(entry.text))
      text.classList.add(RESULT_CLASSES.get(entry.text));
    body.append(text);
    if (shown !== entry.text) {
      const button = element('button', 'whole', `Show all ${count(entry.text.length)} characters`);
      button.type = 'button';
      button.addEventListener('click', () => this.showWhole(entry));
      body.append(' ', button);
    }
    row.append(body, element('span', 'status'));
    entry.row = row;
    fillStatus(entry);
    return row;
  }
}

function fillStatus(entry) {
  const status = entry.row.querySelector('.status');
  status.textContent = entry.status;
  status.title = entry.statusHelp || '';
  status.classList.toggle('warning', Boolean(entry.hint));
  const old = entry.row.querySelector('.advice');
  if (old)
    old.remove();
  if (entry.hint)
    entry.row.append(element('span', 'advice', entry.hint));
}

/** A text on one line of bearable length. */
function shorten(text) {
  const start = text.length > LOG_TEXT ? `${text.slice(0, LOG_TEXT)}…` : text;
  return start.replace(/[\u0000-\u001f\u007f]+/g, ' ');
}

// ---- Small helpers ------------------------------------------------------------------------------

function byId(id) {
  return document.getElementById(id);
}

function element(tag, className, text = '') {
  const made = document.createElement(tag);
  made.className = className;
  made.textContent = text;
  return made;
}

function digits(number, length) {
  return String(number).padStart(length, '0');
}

function day(date) {
  return `${date.getFullYear()}-${digits(date.getMonth() + 1, 2)}-${digits(date.getDate(), 2)}`;
}

function clock(date) {
  const parts = [date.getHours(), date.getMinutes(), date.getSeconds()];
  return `${parts.map((part) => digits(part, 2)).join(':')}.${digits(date.getMilliseconds(), 3)}`;
}

/** For file names: no colon, which some file systems refuse. */
function fileStamp(date) {
  return `${day(date)}-${clock(date).replace(/[:.]/g, '')}`;
}

function count(number) {
  return number.toLocaleString('en');
}

function counted(number, one, many = `${one}s`) {
  return `${count(number)} ${number === 1 ? one : many}`;
}

function duration(milliseconds) {
  return milliseconds < 9999.5 ? `${count(Math.round(milliseconds))} ms`
                               : `${(milliseconds / 1000).toFixed(1)} s`;
}

function bytesOf(base64) {
  const characters = atob(base64);
  const bytes = new Uint8Array(characters.length);
  for (let i = 0; i < bytes.length; i += 1)
    bytes[i] = characters.charCodeAt(i);
  return bytes;
}

function saveFile(name, content, type) {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(new Blob([content], { type }));
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 60000); // the browser reads it a little later
}

// ---- Page: connection ---------------------------------------------------------------------------

const connection = new Connection({
  changed(note) {
    if (connection.state !== 'open')
      exchanges.giveUpAll();
    if (note)
      log.add('note', { text: note });
    showConnection();
  },
  received,
});

/** Buttons that send their data-command as it stands. */
const commandButtons = document.querySelectorAll('[data-command]');

function showConnection() {
  const { state, unreachable } = connection;
  const texts = {
    closed: 'Not connected',
    connecting: 'Connecting…',
    open: 'Connected',
    waiting: unreachable ? 'Can’t connect' : 'Connection lost',
  };
  byId('state').className = `state ${state}`;
  setText('state-text', texts[state]);
  byId('connect').textContent = {
    closed: 'Connect', connecting: 'Cancel', open: 'Disconnect', waiting: 'Stop trying',
  }[state];
  for (const button of commandButtons)
    button.disabled = state !== 'open';
  byId('trouble').hidden = state === 'open' || !unreachable;
  setText('trouble-address', connection.address);
  setText('trouble-reason', connection.reason);
  byId('trouble-reason').hidden = !connection.reason;
  showCountdown();
  showPicture();
}

function showCountdown() {
  const seconds = Math.max(0, Math.ceil((connection.nextTry - Date.now()) / 1000));
  setText('state-detail', connection.state === 'waiting' ? `next try in ${seconds} s` : '');
}

/** Leaves the element alone when nothing changes, for a screen reader reads what is set. */
function setText(id, text) {
  if (byId(id).textContent !== text)
    byId(id).textContent = text;
}

function openTyped() {
  const field = byId('address');
  const address = completeAddress(field.value);
  field.setCustomValidity(
    address ? '' : `This is no WebSocket address, such as ${DEFAULT_ADDRESS}`);
  if (!field.reportValidity())
    return;
  field.value = address;
  connection.open(address);
}

byId('server').addEventListener('submit', (event) => {
  event.preventDefault();
  openTyped();
});
byId('address').addEventListener('input', () => byId('address').setCustomValidity(''));
byId('connect').addEventListener('click', () => {
  if (connection.state === 'closed')
    openTyped();
  else
    connection.close();
});
byId('try-now').addEventListener('click', openTyped);

// ---- Page: messages -----------------------------------------------------------------------------

const exchanges = new Exchanges();

function send(text) {
  if (!connection.send(text))
    return false;
  const name = commandName(text);
  const hint = typingHint(text);
  const entry = log.add('sent', { text, hint, status: name ? 'waiting' : '' });
  if (name)
    exchanges.sent(name, (what) => {
      if (what === 'answered')
        log.update(entry, '', hint);
      else if (what === 'late')
        log.update(entry, 'no answer', noAnswerHint(name));
      else
        log.update(entry, 'no answer', 'The connection ended before one came.');
    });
  return true;
}

function received(data) {
  if (typeof data !== 'string')
    log.add('pushed', { text: `Binary message of ${count(data.size)} bytes` });
  else if (data.startsWith(FRAME_START))
    preview.frame(data);
  else
    receivedText(data);
}

function receivedText(raw) {
  const answer = parseAnswer(raw);
  if (!answer) {
    log.add('pushed', { text: raw, status: 'text', statusHelp: 'Not framed as an answer' });
    return;
  }
  const milliseconds = exchanges.answered(answer.name);
  const parts = { name: answer.name, text: answer.result, raw };
  if (milliseconds === null)
    log.add('pushed', { ...parts, status: 'pushed',
      statusHelp: 'Nothing here waits for it: an event, or the answer to another page' });
  else
    log.add('answer', { ...parts, status: duration(milliseconds),
      statusHelp: 'From sending the command to its answer' });
}

// ---- Page: preview ------------------------------------------------------------------------------

const preview = new Preview(byId('picture'), (base64, error) => {
  log.add('note', { text: `A frame can’t be read (${error.message}): ${base64}` });
});

function showPicture() {
  const { shown, received: frames } = preview;
  const connected = connection.state === 'open';
  const live = connected && preview.isLive();
  const still = shown ? `still since ${clock(shown.time).slice(0, 8)}` : 'no picture';
  byId('live').className = `badge ${live ? 'live' : ''}`;
  setText('live', live ? 'live' : still);
  byId('picture').hidden = !shown;
  byId('no-picture').hidden = Boolean(shown);
  setText('no-picture', connected ? 'No picture yet: start a camera' : 'No picture');
  byId('save-frame').disabled = !shown;
  byId('actual-size').disabled = !shown;
  setText('figure-rate', frames ? `${preview.rate.toFixed(live ? 1 : 0)} fps` : '');
  setText('figure-size', shown ? `${shown.width}×${shown.height} px` : '');
  setText('figure-bytes', shown ? `${(shown.bytes.length / 1000).toFixed(1)} kB` : '');
  setText('figure-skipped', preview.skipped ? `${count(preview.skipped)} skipped` : '');
  setText('figure-broken', preview.broken ? `${count(preview.broken)} broken` : '');
  setText('log-count', `${entryCount()} · ${counted(frames, 'frame')} not listed`);
}

function entryCount() {
  const { length } = log.entries;
  return length < LOG_ENTRIES ? counted(length, 'entry', 'entries') : `the last ${length} entries`;
}

for (const button of commandButtons) {
  const { command, about } = button.dataset;
  button.title = about ? `${command}: ${about}` : command;
  button.addEventListener('click', () => send(command));
}
byId('actual-size').addEventListener('click', () => {
  const actual = byId('stage').classList.toggle('actual');
  byId('actual-size').setAttribute('aria-pressed', String(actual));
});
byId('save-frame').addEventListener('click', () => {
  const { bytes, time } = preview.shown;
  saveFile(`frame-${fileStamp(time)}.jpg`, bytes, 'image/jpeg');
});
document.addEventListener('visibilitychange', () => preview.drawWaiting());

// ---- Page: log ----------------------------------------------------------------------------------

const log = new Log({ list: byId('log'), latest: byId('log-latest'), empty: byId('log-empty') },
                    showWhole);

function showWhole(entry) {
  const name = entry.name || commandName(entry.text).slice(0, NAME_LIMIT);
  setText('whole-title', `${DIRECTIONS[entry.kind]} ${name}`);
  setText('whole-size', `${clock(entry.time)} · ${counted(entry.text.length, 'character')}`);
  byId('whole-copy').textContent = 'Copy';
  byId('whole-text').value = entry.text;
  byId('whole').showModal();
  byId('whole-text').scrollTop = 0;
}

byId('whole-copy').addEventListener('click', () => {
  // Unlike navigator.clipboard this works on plain http pages too.
  byId('whole-text').select();
  byId('whole-copy').textContent = document.execCommand('copy') ? 'Copied' : 'Can’t copy';
});
byId('whole-close').addEventListener('click', () => byId('whole').close());
byId('whole').addEventListener('close', () => { byId('whole-text').value = ''; });
byId('clear-log').addEventListener('click', () => log.clear());
byId('save-log').addEventListener('click', () => {
  saveFile(`console-${fileStamp(new Date())}.txt`, log.asText(), 'text/plain;charset=utf-8');
});

// ---- Page: command line -------------------------------------------------------------------------

/** What was sent before, and the place in it while going up and down. */
const commandHistory = {
  key: 'console.history',
  limit: 100,
  texts: [],
  place: 0, // texts.length: the line being typed
  typed: '',

  load() {
    try { // kept until the tab is closed; a browser may refuse storage to a file page
      this.texts = JSON.parse(sessionStorage.getItem(this.key)) || [];
    } catch {
      this.texts = [];
    }
    this.place = this.texts.length;
  },

  add(text) {
    if (this.texts[this.texts.length - 1] !== text)
      this.texts.push(text);
    this.texts.splice(0, this.texts.length - this.limit);
    this.place = this.texts.length;
    try {
      sessionStorage.setItem(this.key, JSON.stringify(this.texts));
    } catch (error) {
      console.info('The history lasts only until the page is left:', error.message);
    }
  },

  /** @returns the text one step (-1 up, 1 down) from `current`, the line as it stands */
  step(by, current) {
    if (this.place === this.texts.length)
      this.typed = current;
    this.place = Math.min(Math.max(this.place + by, 0), this.texts.length);
    return this.place === this.texts.length ? this.typed : this.texts[this.place];
  },
};

function showHint(warning) {
  setText('command-hint',
          warning || 'Enter sends the text as it stands; ↑ and ↓ bring back earlier ones.');
  byId('command-hint').classList.toggle('warning', Boolean(warning));
}

byId('command-line').addEventListener('submit', (event) => {
  event.preventDefault();
  const field = byId('command');
  if (field.value === '')
    return;
  if (!send(field.value)) {
    showHint('Not connected: nothing was sent.');
    return;
  }
  commandHistory.add(field.value);
  field.value = '';
  showHint('');
});
byId('command').addEventListener('input', () => {
  showHint(typingHint(byId('command').value));
});
byId('command').addEventListener('keydown', (event) => {
  const by = { ArrowUp: -1, ArrowDown: 1 }[event.key];
  if (!by || event.isComposing || event.ctrlKey || event.altKey || event.shiftKey || event.metaKey)
    return;
  event.preventDefault();
  const field = event.target;
  field.value = commandHistory.step(by, field.value);
  field.setSelectionRange(field.value.length, field.value.length);
  showHint(typingHint(field.value));
});

// ---- Page: start --------------------------------------------------------------------------------

for (const [example, about] of COMMANDS) {
  const option = element('option', '', about);
  option.value = example;
  byId('known-commands').append(option);
}
commandHistory.load();
showHint('');
byId('address').value = new URLSearchParams(location.search).get('server') || DEFAULT_ADDRESS;
setInterval(() => preview.measure(), 1000);
setInterval(() => {
  showCountdown();
  showPicture();
}, 250);
showConnection();
byId('command').focus();
openTyped();
