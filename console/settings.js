// SPDX-License-Identifier: MIT
//
// What the console remembers, and its colors: loaded first, so that the page never flashes.

'use strict';

/** Values that outlive the page. A browser may refuse storage to a file page: then they don't. */
class Settings {
  /** @param storage  gives the browser's storage, which may throw */
  constructor(storage) {
    this.storage = storage;
    this.kept = new Map();
  }

  /** @returns the value stored under `key`, or `fallback` when there is none that can be read */
  get(key, fallback) {
    if (this.kept.has(key))
      return this.kept.get(key);
    try {
      const text = this.storage().getItem(`console.${key}`);
      return text === null ? fallback : JSON.parse(text);
    } catch {
      return fallback;
    }
  }

  /** @param value  anything that JSON can hold */
  set(key, value) {
    this.kept.set(key, value);
    try {
      this.storage().setItem(`console.${key}`, JSON.stringify(value));
    } catch (error) {
      console.info(`"${key}" lasts only until the page is left:`, error.message);
    }
  }
}

/** From visit to visit. */
const settings = new Settings(() => localStorage);

/** Until the tab is closed: what may hold names and numbers of customers. */
const session = new Settings(() => sessionStorage);

/** Light, dark or as the desktop has it; the style sheet knows the first two only. */
const theme = {
  choice: settings.get('theme', 'auto'),
  desktopDark: matchMedia('(prefers-color-scheme: dark)'),

  choose(choice) {
    this.choice = choice;
    settings.set('theme', choice);
    this.apply();
  },

  apply() {
    const dark = this.choice === 'dark' || (this.choice === 'auto' && this.desktopDark.matches);
    document.documentElement.dataset.theme = dark ? 'dark' : 'light';
  },
};

theme.apply();
theme.desktopDark.addEventListener('change', () => theme.apply());
