// SPDX-License-Identifier: MIT
//
// The log of sent and received texts. Texts from the server become text nodes, never markup.

'use strict';

const LOG_ENTRIES = 500;

/** Answers may be pictures: beyond this many characters in total the oldest entries are dropped. */
const LOG_CHARACTERS = 32e6;

/** Characters of a text shown in the list. */
const LOG_TEXT = 160;

/** Longer texts aren't searched for pictures. */
const PICTURE_TEXT = 16e6;

const DIRECTIONS = { sent: '→', answer: '←', pushed: '⇐', note: '•' };

/** The latest entries, newest at the bottom; follows them unless scrolled up. */
class Log {
  /**
   * @param view  elements: list, latest (button), empty (shown without entries), count
   * @param actions  showWhole(entry); again(entry): reuse a sent command
   */
  constructor(view, actions) {
    this.view = view;
    this.actions = actions;
    this.entries = [];
    this.characters = 0;
    this.fresh = []; // entries without a row yet; they get one in the next animation frame
    this.drawing = false;
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
   *               error: whether something went wrong
   */
  add(kind, parts) {
    const entry = { kind, time: new Date(), name: '', text: '', say: null, status: null, hint: null,
      error: false, row: null, ...parts };
    if (entry.raw === undefined)
      entry.raw = entry.text;
    this.entries.push(entry);
    this.characters += entry.raw.length;
    while (this.entries.length > LOG_ENTRIES
        || (this.characters > LOG_CHARACTERS && this.entries.length > 1))
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
    if (entry.row)
      fillStatus(entry);
    else if (changes.error && !this.fresh.includes(entry) && this.entries.includes(entry))
      this.draw(); // it passes the filter only now
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

  /** The listed entries as text, one line each, fields separated by tabs. */
  asText() {
    return this.entries.filter((entry) => this.matches(entry)).map(lineOf).join('');
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
    this.characters -= entry.raw.length;
    if (entry.row)
      entry.row.remove();
    entry.row = null;
    entry.raw = ''; // the entry itself may live on until a late answer
    entry.text = '';
    entry.dropped = true;
  }

  drawSoon() {
    if (this.drawing)
      return;
    this.drawing = true;
    requestAnimationFrame(() => {
      this.drawing = false;
      this.drawFresh();
    });
  }

  drawFresh() {
    if (!this.paused) {
      for (const entry of this.fresh.splice(0)) {
        if (!entry.dropped && this.matches(entry))
          this.view.list.append(this.rowOf(entry));
      }
    }
    this.drawn();
  }

  /** Rebuilds the list, for example for another filter or language. */
  draw() {
    removeChildren(this.view.list);
    const waiting = this.paused ? this.fresh : [];
    for (const entry of this.entries) {
      entry.row = null;
      if (!waiting.includes(entry) && this.matches(entry))
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
    acts.append(rowButton('copy', 'log.copy.one', () => copyText(entry.raw || entry.say())));
    row.append(acts);
    row.setAttribute('aria-selected', String(entry === this.selected));
    return row;
  }

  bodyOf(entry) {
    const body = element('span', 'body');
    if (entry.name)
      body.append(element('b', 'name', entry.name), ' ');
    const whole = entry.say ? entry.say() : entry.text;
    const pictures = entry.kind !== 'sent' && whole.length <= PICTURE_TEXT ? picturesIn(whole) : [];
    const shown = shorten(pictures.length ? withoutPictures(whole) : whole, LOG_TEXT);
    const text = element('span', 'text', shown || (entry.name ? t('result.empty') : ''));
    const isNo = entry.text === 'false' && !isFailure(entry.name, entry.text);
    if (entry.name && ['true', 'false', ''].includes(entry.text) && !isNo)
      text.classList.add(entry.text || 'nothing');
    body.append(text);
    if (shown !== whole) {
      const more = element('span', 'whole', t('log.whole', count(whole.length)));
      more.addEventListener('click', () => this.actions.showWhole(entry)); // key: Enter
      body.append(' ', more);
    }
    for (const url of pictures)
      body.append(pictureOf(url, () => this.actions.showWhole(entry)));
    return body;
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
      c: () => String(window.getSelection()) || (this.selected && copyText(this.selected.raw)),
    } : {
      ArrowUp: () => this.select(listed[place < 0 ? last : Math.max(place - 1, 0)] || null),
      ArrowDown: () => this.select(listed[Math.min(place + 1, last)] || null),
      Home: () => this.select(listed[0] || null),
      End: () => this.select(listed[last] || null),
      Enter: () => this.selected && this.actions.showWhole(this.selected),
      c: () => this.selected && copyText(this.selected.raw || this.selected.say()),
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
    entry.row.append(element('span', 'advice', entry.hint()));
}

function lineOf(entry) {
  const more = [entry.status, entry.hint].filter(Boolean).map((say) => say());
  const line = [
    `${day(entry.time)} ${clock(entry.time)}`,
    { sent: '->', answer: '<-', pushed: '<=', note: '--' }[entry.kind],
    (entry.say ? entry.say() : entry.raw).replace(/\r?\n/g, '\\n'),
    more.filter(Boolean).join('. '),
  ].join('\t').trimEnd();
  return `${line}\n`;
}
