// SPDX-License-Identifier: MIT
//
// Remembered settings and the colors: loaded first, so that the page never flashes.

'use strict';

/** Values that outlive the page, unless the browser refuses storage to a page from a file. */
class Settings {
  /** @param storage  returns the browser's storage, or throws */
  constructor(storage) {
    this.storage = storage;
    this.kept = new Map();
  }

  /** @returns the value stored under `key`, or `fallback` if there is none */
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

  /** @param value  anything JSON can represent */
  set(key, value) {
    this.kept.set(key, value);
    try {
      this.storage().setItem(`console.${key}`, JSON.stringify(value));
    } catch (error) {
      console.info(`"${key}" can’t be stored:`, error.message);
    }
  }
}

/** Kept across visits. */
const settings = new Settings(() => localStorage);

/** Kept until the tab is closed: these may contain customers' names and numbers. */
const session = new Settings(() => sessionStorage);

/** Light, dark or following the desktop; the style sheet knows only the first two. */
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
