// SPDX-License-Identifier: MIT
//
// The log of sent and received texts. Texts from the server become text nodes, never markup.

'use strict';

const LOG_ENTRIES = 500;

/** Longer texts leave the page's memory for the browser's store, where an entry can be read in full. */
const LONG_TEXT = 64e3;

/** Characters of them that stay in the page, for the list and the search. */
const LONG_TEXT_KEPT = 2000;

/** Bytes in the browser's store; beyond it the oldest entries keep only their beginning. */
const STORED_BYTES = 512e6;

/** Entries that are listed while a script runs. */
const BUSY_ENTRIES = 40;

/** Characters of a text shown in the list. */
const LOG_TEXT = 160;

/** Longer texts aren't searched for pictures. */
const PICTURE_TEXT = 16e6;

const DIRECTIONS = { sent: '→', answer: '←', pushed: '⇐', note: '•' };

/** The latest entries, newest at the bottom; follows them unless scrolled up. */
class Log {
  /**
   * @param view  elements: list, latest (button), empty (shown without entries), count
   * @param actions  showWhole(entry); again(entry): reuse a sent command; why(entry): look for the
   *                 reason of an answer; whyButton(entry): what a failure offers below it
   */
  constructor(view, actions) {
    this.view = view;
    this.actions = actions;
    this.entries = [];
    this.stored = []; // entries with a blob, oldest first
    this.storedBytes = 0;
    this.fresh = []; // entries without a row yet; they get one in the next animation frame
    this.oldRows = []; // of dropped entries: removing one at a time would draw the list each time
    this.partial = false; // only the newest entries are listed
    this.redraw = new Redraw(() => this.drawFresh());
    this.filter = { kind: 'all', words: '' };
    this.paused = false;
    this.selected = null;
    this.atEnd = true;
    view.list.addEventListener('scroll', () => this.setAtEnd(this.isAtEnd()));
    view.list.addEventListener('keydown', (event) => this.key(event));
    view.latest.addEventListener('click', () => this.goToEnd());
    new ResizeObserver(() => this.atEnd && this.goToEnd()).observe(view.list);
  }

  /**
   * @param kind  sent, answer, pushed (not asked for by this page) or note
   * @param parts  name: of the answer or event; text: the rest; raw: as sent or received;
   *               say: instead of text, a function that returns it in the page's language;
   *               status, hint: also functions, for the last column and a line of advice;
   *               error: whether something went wrong; asked: the sent text that it answers
   */
  add(kind, parts) {
    const entry = { kind, time: new Date(), name: '', text: '', say: null, status: null, hint: null,
      error: false, asked: '', row: null, ...parts };
    if (entry.raw === undefined)
      entry.raw = entry.text;
    entry.length = entry.raw.length;
    if (entry.length > LONG_TEXT)
      this.store(entry);
    this.entries.push(entry);
    while (this.entries.length > LOG_ENTRIES)
      this.dropOldest();
    this.fresh.push(entry);
    if (this.fresh.length > 2 * LOG_ENTRIES) // a hidden page gets no animation frames
      this.fresh.splice(0, LOG_ENTRIES);
    this.drawSoon();
    return entry;
  }

  /** Changes an entry's last column and line of advice. */
  update(entry, changes) {
    Object.assign(entry, changes);
    if (entry.row) {
      const atEnd = this.atEnd;
      fillStatus(entry);
      if (atEnd)
        this.followSoon();
    } else if (changes.error && !this.fresh.includes(entry) && this.entries.includes(entry)) {
      this.draw(); // it passes the filter only now
    }
  }

  /** Later, for it makes the browser lay out the list. */
  followSoon() {
    this.atEnd = true;
    this.drawSoon();
  }

  clear() {
    while (this.entries.length)
      this.dropOldest();
    this.select(null);
    this.draw();
  }

  /** @param changes  kind: all, sent, answer, pushed or error; words: what a text must contain */
  show(changes) {
    Object.assign(this.filter, changes);
    this.draw();
  }

  pause(paused) {
    this.paused = paused;
    this.drawSoon();
  }

  /** Moves a long text out of the page's memory. */
  store(entry) {
    entry.pictures = entry.kind !== 'sent' && entry.length <= PICTURE_TEXT ? picturesIn(entry.raw).map(blobAddress) : [];
    entry.blob = new Blob([entry.raw]);
    entry.raw = copyOf(entry.raw.slice(0, LONG_TEXT_KEPT));
    entry.text = copyOf(entry.text.slice(0, LONG_TEXT_KEPT));
    this.stored.push(entry);
    this.storedBytes += entry.blob.size;
    while (this.storedBytes > STORED_BYTES && this.stored.length > 1)
      this.release(this.stored[0]);
  }

  release(entry) {
    if (!entry.blob)
      return;
    this.stored.splice(this.stored.indexOf(entry), 1);
    this.storedBytes -= entry.blob.size;
    entry.blob = null;
    entry.pictures.forEach((url) => URL.revokeObjectURL(url));
    entry.pictures = [];
  }

  /**
   * The listed entries as parts of a text, one line each, fields separated by tabs.
   * @param whole  whether with long texts in full, or with their beginning
   */
  asParts(whole) {
    return [].concat(...this.entries.filter((entry) => this.matches(entry)).map((entry) => lineOf(entry, whole)));
  }

  matches(entry) {
    const { kind, words } = this.filter;
    if (kind === 'error' ? !entry.error : kind !== 'all' && kind !== entry.kind)
      return false;
    const text = entry.say ? entry.say() : entry.raw;
    return !words || text.toLowerCase().includes(words.toLowerCase());
  }

  dropOldest() {
    const entry = this.entries.shift();
    this.release(entry);
    if (entry.row)
      this.oldRows.push(entry.row);
    entry.row = null;
    entry.raw = ''; // the entry itself may live on until a late answer
    entry.text = '';
    entry.dropped = true;
  }

  drawSoon() {
    this.redraw.soon();
  }

  drawFresh() {
    if (Redraw.busy && this.atEnd && !this.paused) {
      this.drawNewest();
      return;
    }
    if (this.partial) {
      this.draw();
      return;
    }
    for (const row of this.oldRows.splice(0))
      row.remove();
    if (!this.paused) {
      for (const entry of this.fresh.splice(0)) {
        if (!entry.dropped && this.matches(entry))
          this.view.list.append(this.rowOf(entry));
      }
    }
    this.drawn();
  }

  /** While a script runs only the newest entries are listed: the others would be gone before they are read. */
  drawNewest() {
    this.draw(this.entries.length - BUSY_ENTRIES);
    this.partial = true;
    this.drawSoon();
  }

  /** Rebuilds the list, for example for another filter or language. @param from  place of the first entry */
  draw(from = 0) {
    this.partial = false;
    this.oldRows = [];
    removeChildren(this.view.list);
    const waiting = this.paused ? this.fresh : [];
    for (const [place, entry] of this.entries.entries()) {
      entry.row = null;
      if (place >= from && !waiting.includes(entry) && this.matches(entry))
        this.view.list.append(this.rowOf(entry));
    }
    if (!this.paused)
      this.fresh = [];
    this.drawn();
  }

  drawn() {
    const listed = this.view.list.childElementCount;
    this.view.empty.hidden = listed > 0;
    this.view.empty.textContent = t(this.entries.length ? 'log.nothing' : 'log.empty');
    const waiting = this.paused ? ` · ${t('log.waiting', this.fresh.length)}` : '';
    this.view.count.textContent = (listed === this.entries.length ? t('log.count', listed)
      : t('log.count.of', listed, this.entries.length)) + waiting;
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

  // ---- One row ----

  rowOf(entry) {
    const row = element('li', entry.kind);
    entry.row = row;
    row.id = `entry-${Log.lastId += 1}`;
    row.setAttribute('role', 'option');
    row.addEventListener('click', () => this.select(entry));
    row.addEventListener('dblclick', () => this.actions.showWhole(entry));
    const direction = element('span', 'direction', DIRECTIONS[entry.kind]);
    const event = entry.kind === 'pushed' && facts.events.get(entry.name);
    direction.title = event ? said(event.summary) : t(`direction.${entry.kind}`);
    row.append(element('time', '', clock(entry.time)), direction, this.bodyOf(entry),
               element('span', 'status'));
    fillStatus(entry);
    const acts = element('span', 'acts'); // for the mouse; the list has keys for these
    acts.setAttribute('aria-hidden', 'true');
    if (entry.kind === 'sent')
      acts.append(rowButton('again', 'log.again', () => this.actions.again(entry)));
    if (entry.kind === 'answer')
      acts.append(rowButton('why', 'log.why', () => this.actions.why(entry)));
    acts.append(rowButton('copy', 'log.copy.one', () => this.copy(entry)));
    row.append(acts);
    row.setAttribute('aria-selected', String(entry === this.selected));
    return row;
  }

  bodyOf(entry) {
    const body = element('span', 'body');
    if (entry.name)
      body.append(element('b', 'name', entry.name), ' ');
    const whole = entry.say ? entry.say() : entry.text;
    const pictures = entry.pictures || (entry.kind !== 'sent' ? picturesIn(whole) : []);
    const shown = shorten(pictures.length ? withoutPictures(whole) : whole, LOG_TEXT);
    const text = element('span', 'text', shown || (entry.name ? t('result.empty') : ''));
    const isNo = entry.text === 'false' && !isFailure(entry.name, entry.text);
    if (entry.name && ['true', 'false', ''].includes(entry.text) && !isNo)
      text.classList.add(entry.text || 'nothing');
    body.append(text);
    if (shown !== whole || entry.length > LONG_TEXT) {
      const more = element('span', 'whole', t('log.whole', count(entry.length)));
      more.addEventListener('click', () => this.actions.showWhole(entry)); // key: Enter
      body.append(' ', more);
    }
    for (const url of pictures)
      body.append(pictureOf(url, () => this.actions.showWhole(entry)));
    return body;
  }

  async copy(entry) {
    await copyText(await wholeTextOf(entry));
  }

  // ---- Selection ----

  select(entry) {
    if (this.selected && this.selected.row)
      this.selected.row.setAttribute('aria-selected', 'false');
    this.selected = entry;
    if (entry && entry.row) {
      entry.row.setAttribute('aria-selected', 'true');
      entry.row.scrollIntoView({ block: 'nearest' });
      this.view.list.setAttribute('aria-activedescendant', entry.row.id);
    } else {
      this.view.list.removeAttribute('aria-activedescendant');
    }
  }

  key(event) {
    if (event.target !== this.view.list || event.altKey || event.metaKey || (event.ctrlKey && event.shiftKey))
      return;
    const listed = this.entries.filter((entry) => entry.row);
    const place = listed.indexOf(this.selected);
    const last = listed.length - 1;
    const act = event.ctrlKey ? {
      c: () => String(window.getSelection()) || (this.selected && this.copy(this.selected)),
    } : {
      ArrowUp: () => this.select(listed[place < 0 ? last : Math.max(place - 1, 0)] || null),
      ArrowDown: () => this.select(listed[Math.min(place + 1, last)] || null),
      Home: () => this.select(listed[0] || null),
      End: () => this.select(listed[last] || null),
      Enter: () => this.selected && this.actions.showWhole(this.selected),
      c: () => this.selected && this.copy(this.selected),
      w: () => this.selected && this.selected.kind === 'answer' && this.actions.why(this.selected),
      r: () => this.selected && this.selected.kind === 'sent' && this.actions.again(this.selected),
    };
    const key = keyOf(event);
    if (!act[key])
      return;
    if (!event.ctrlKey)
      event.preventDefault();
    act[key]();
  }
}

Log.lastId = 0;

function rowButton(text, key, pressed) {
  const made = button('act', t(text), (event) => {
    event.stopPropagation();
    pressed();
  });
  made.title = t(key);
  made.tabIndex = -1;
  return made;
}

function pictureOf(url, pressed) {
  const picture = element('img', 'thumbnail');
  picture.alt = t('log.picture');
  picture.addEventListener('error', () => picture.remove()); // not a picture after all
  picture.addEventListener('click', pressed);
  picture.src = url;
  return picture;
}

function fillStatus(entry) {
  const status = entry.row.querySelector('.status');
  status.textContent = entry.status ? entry.status() : '';
  entry.row.classList.toggle('error', entry.error);
  const old = entry.row.querySelector('.advice');
  if (old)
    old.remove();
  if (entry.hint)
    entry.row.append(adviceOf(entry));
}

/** The advice: lines of text, and what else it offers. */
function adviceOf(entry) {
  const advice = element('span', 'advice');
  for (const part of [].concat(entry.hint()))
    advice.append(typeof part === 'string' ? element('span', 'advice-line', part) : part);
  return advice;
}

/** @returns a promise of all of an entry's text, or of the beginning if no more is kept */
function wholeTextOf(entry) {
  return entry.blob ? new Response(entry.blob).text() : Promise.resolve(entry.raw || (entry.say ? entry.say() : ''));
}

/** A text of its own: a slice of a string keeps all of that in memory. */
function copyOf(text) {
  return JSON.parse(JSON.stringify(text));
}

/** A picture's address in the browser's store, instead of a data URL. */
function blobAddress(url) {
  const [head, base64] = url.split(',');
  return URL.createObjectURL(new Blob([bytesOf(base64)], { type: head.slice(5, head.indexOf(';')) }));
}

function lineOf(entry, whole) {
  const advice = [entry.status, entry.hint].filter(Boolean).map((say) => say());
  const more = [].concat(...advice).filter((part) => part && typeof part === 'string').join('. ');
  const start = `${day(entry.time)} ${clock(entry.time)}\t${{ sent: '->', answer: '<-', pushed: '<=', note: '--' }[entry.kind]}\t`;
  const text = (entry.say ? entry.say() : entry.raw).replace(/\r?\n/g, '\\n');
  const rest = entry.length > entry.raw.length ? `… (${t('characters', count(entry.length))})` : '';
  return [start, ...(whole && entry.blob ? [entry.blob] : [text, rest]), `${more ? `\t${more}` : ''}\n`];
}
