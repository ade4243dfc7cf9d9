// SPDX-License-Identifier: MIT
//
// Small helpers: elements, numbers and times as text, base64, files, the clipboard.

'use strict';

function byId(id) {
  return document.getElementById(id);
}

function element(tag, className, text = '') {
  const made = document.createElement(tag);
  if (className)
    made.className = className;
  made.textContent = text;
  return made;
}

function button(className, text, pressed) {
  const made = element('button', className, text);
  made.type = 'button';
  made.addEventListener('click', pressed);
  return made;
}

function removeChildren(parent) {
  while (parent.lastChild)
    parent.lastChild.remove();
}

/** Leaves the element alone if nothing changes: screen readers read whatever is set. */
function setText(id, text) {
  if (byId(id).textContent !== text)
    byId(id).textContent = text;
}

/** Marks the button of a group whose data attribute has this value. */
function press(group, attribute, value) {
  for (const each of group)
    each.setAttribute('aria-pressed', String(each.dataset[attribute] === value));
}

/** Milliseconds between two drawings while much happens: the browser needs tens of them for each. */
const BUSY_PAUSE = 500;

/** Draws once for many changes: with the screen's next frame, or less often while the page is busy. */
class Redraw {
  constructor(draw) {
    this.draw = draw;
    this.waiting = false;
  }

  soon() {
    if (this.waiting)
      return;
    this.waiting = true;
    if (Redraw.busy)
      setTimeout(() => this.atFrame(), BUSY_PAUSE - performance.now() % BUSY_PAUSE); // all of them in one frame
    else
      this.atFrame();
  }

  now() {
    this.waiting = false;
    this.draw();
  }

  atFrame() {
    requestAnimationFrame(() => this.waiting && this.now());
  }
}

Redraw.busy = false; // a script is running

/** How long a short message is shown. */
const MESSAGE_MILLISECONDS = 1800;

let messageTimer = 0;

/** Shows a short message for a moment, and passes it to screen readers. */
function speak(text) {
  const message = byId('spoken');
  message.textContent = text;
  message.classList.add('shown');
  clearTimeout(messageTimer);
  messageTimer = setTimeout(() => message.classList.remove('shown'), MESSAGE_MILLISECONDS);
}

function hasModifier(event) {
  return event.ctrlKey || event.altKey || event.metaKey || event.shiftKey;
}

/** The key's name; letters in lower case even with Caps Lock on. */
function keyOf(event) {
  return event.key.length === 1 ? event.key.toLowerCase() : event.key;
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

/** For file names: without colons, which some file systems refuse. */
function fileStamp(date) {
  return `${day(date)}-${clock(date).replace(/[:.]/g, '')}`;
}

const numberFormat = new Intl.NumberFormat('en'); // toLocaleString() makes one each time

function count(number) {
  return numberFormat.format(number);
}

function duration(milliseconds) {
  return milliseconds < 9999.5 ? `${count(Math.round(milliseconds))} ms`
                               : `${(milliseconds / 1000).toFixed(1)} s`;
}

/** A text on one line, cut off after a length. */
function shorten(text, length) {
  const start = text.length > length ? `${text.slice(0, length)}…` : text;
  return start.replace(/[\u0000-\u001f\u007f]+/g, ' ');
}

function bytesOf(base64) {
  const characters = atob(base64);
  const bytes = new Uint8Array(characters.length);
  for (let i = 0; i < bytes.length; i += 1)
    bytes[i] = characters.charCodeAt(i);
  return bytes;
}

function base64Of(buffer) {
  const bytes = new Uint8Array(buffer);
  const step = 0x8000; // more arguments than this overflow the stack
  let characters = '';
  for (let i = 0; i < bytes.length; i += step)
    characters += String.fromCharCode.apply(null, bytes.subarray(i, i + step));
  return btoa(characters);
}

/** @param content  a text or bytes, or a list of them */
function saveFile(name, content, type) {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(new Blob(Array.isArray(content) ? content : [content], { type }));
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 60000); // the browser reads it only later
}

/** @returns a promise of whether the text was copied */
async function copyText(text) {
  let done = false;
  try {
    await navigator.clipboard.writeText(text);
    done = true;
  } catch { // pages from plain http have no clipboard, and the user may deny it
    done = copySelected(text);
  }
  speak(t(done ? 'copied' : 'copy.failed'));
  return done;
}

/** The old way, which needs an element and takes seconds for megabytes. */
function copySelected(text) {
  const focused = document.activeElement;
  const carrier = element('textarea', 'unseen');
  carrier.value = text;
  (document.querySelector('dialog[open]') || document.body).append(carrier);
  carrier.select();
  const done = document.execCommand('copy');
  carrier.remove();
  if (focused)
    focused.focus({ preventScroll: true });
  return done;
}
