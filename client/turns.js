// SPDX-License-Identifier: MIT
//
// Turns: answers carry no id, so calls whose answers could be mixed up are made one at a time, in all
// tabs of an origin.
//
// A key names what is done in turn: the server's address and the command.

/** Where pages without Web Locks (those from http:) talk to other tabs of their origin. */
let channel = null;
const hearers = new Set();

const pageId = `${Math.random()}`;

/** Calls hear() with each message of another tab, until the returned function is called. */
export function hearTabs(hear) {
  openChannel();
  hearers.add(hear);
  return () => { hearers.delete(hear); };
}

/** Sends a message to the other tabs of this origin. */
export function tellTabs(message) {
  if (openChannel())
    channel.postMessage(message);
}

/** In Node there are no tabs, and an open channel would keep the program from ending. */
function openChannel() {
  const { location, BroadcastChannel } = globalThis;
  if (!channel && location && BroadcastChannel) {
    channel = new BroadcastChannel('device-server-client');
    channel.onmessage = ({ data }) => Array.from(hearers).forEach((hear) => hear(data));
  }
  return channel;
}

// ---- Taking turns -------------------------------------------------------------------------------

/** By key: a promise of the end of this page's last turn. */
const queues = new Map();

/**
 * @param shared  with other tabs, not only within this page
 * @returns a promise of the turn: a function that ends it
 */
export function takeTurn(key, shared) {
  let end;
  const ended = new Promise((resolve) => { end = resolve; });
  const turn = (queues.get(key) || Promise.resolve()).then(() => shared && lockTabs(key, ended));
  const last = turn.then(() => ended);
  queues.set(key, last);
  last.then(() => queues.get(key) === last && queues.delete(key));
  return turn.then(() => end);
}

/** @returns a promise, fulfilled when no other tab has the key; this one has it until `ended` */
function lockTabs(key, ended) {
  const { location, navigator } = globalThis;
  if (!location)
    return undefined;
  return new Promise((resolve) => {
    const byChannel = () => resolve(lockByChannel(key, ended));
    if (navigator && navigator.locks)
      navigator.locks.request(key, () => { resolve(); return ended; }).catch(byChannel); // not in a sandbox
    else
      byChannel();
  });
}

/** Milliseconds in which the tab that has a key objects to another one's asking for it. */
const objectionTime = 150;
/** Milliseconds after which a tab asks again that has heard nothing: the other one may have gone. */
const askAgain = 1000;

export const sleep = (milliseconds) => new Promise((resolve) => { setTimeout(resolve, milliseconds); });

/**
 * The same without Web Locks: a tab asks, and has the key unless one that has it, or has asked earlier,
 * objects. A tab whose page is busy all that time can't object.
 */
async function lockByChannel(key, ended) {
  if (!openChannel())
    return;
  const since = Date.now();
  let has = false;
  let objected = false;
  let wake = () => {};
  const unhear = hearTabs((message) => {
    if (message.key !== key)
      return;
    if (message.ask && (has || since < message.since || (since === message.since && pageId < message.ask)))
      tellTabs({ key, objectTo: message.ask });
    if (message.objectTo === pageId)
      objected = true;
    if (message.free)
      wake();
  });
  for (;;) {
    objected = false;
    tellTabs({ key, ask: pageId, since });
    await sleep(objectionTime);
    if (!objected)
      break;
    await Promise.race([sleep(askAgain), new Promise((resolve) => { wake = resolve; })]);
  }
  has = true;
  ended.then(() => {
    unhear();
    tellTabs({ key, free: true });
  });
}

// ---- Answers still to come ----------------------------------------------------------------------

// A page that is reloaded, or gives up, leaves a request whose answer goes to every page and would be
// taken for that of the next request. So it is noted how long it may come, also for other tabs.

const expected = new Map();

function inStorage(act) {
  try {
    return globalThis.location && act(globalThis.localStorage);
  } catch {
    return null; // not allowed for this page
  }
}

const stored = (key) => `device-server-client ${key}`;

/** An answer may come for so many milliseconds. */
export function expectAnswer(key, milliseconds) {
  const until = Date.now() + milliseconds;
  expected.set(key, until);
  inStorage((storage) => storage.setItem(stored(key), until));
}

/** It has come, or will not. */
export function expectNoAnswer(key) {
  expected.delete(key);
  inStorage((storage) => storage.removeItem(stored(key)));
}

/** No answer comes from a server that is not running, or was started again. */
export function expectNone(url) {
  const ofServer = (key) => key.startsWith(url);
  Array.from(expected.keys()).filter(ofServer).forEach(expectNoAnswer);
  const left = inStorage((storage) => Object.keys(storage).map((name) => name.slice(stored('').length))) || [];
  left.filter(ofServer).forEach(expectNoAnswer);
}

/** For how many milliseconds an answer may still come, below `limit`; 0: none is expected. */
export function answerExpected(key, limit) {
  const until = Math.max(expected.get(key) || 0, Number(inStorage((storage) => storage.getItem(stored(key)))) || 0);
  const left = until - Date.now();
  return left > 0 && left <= limit ? left : 0; // beyond the limit: the clock was changed
}
