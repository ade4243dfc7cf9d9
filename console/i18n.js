// SPDX-License-Identifier: MIT
//
// Shows the page's texts (texts.js) in the chosen language.

'use strict';

const LANGUAGES = ['en', 'zh']; // in the order of the columns of TEXTS

const i18n = {
  language: LANGUAGES.includes(settings.get('language')) ? settings.get('language')
    : navigator.language.toLowerCase().startsWith('zh') ? 'zh' : 'en',
  listeners: [],

  /** @param listener  called after every change of language, to update its own texts */
  onChange(listener) {
    this.listeners.push(listener);
  },

  choose(language) {
    this.language = language;
    settings.set('language', language);
    this.apply();
  },

  /** Fills the elements that name their texts in data-t, data-t-title, -label and -placeholder. */
  apply() {
    document.documentElement.lang = this.language;
    document.title = t('title');
    for (const each of document.querySelectorAll('[data-t]'))
      each.textContent = t(each.dataset.t);
    for (const each of document.querySelectorAll('[data-t-title]'))
      each.title = t(each.dataset.tTitle);
    for (const each of document.querySelectorAll('[data-t-label]'))
      each.setAttribute('aria-label', t(each.dataset.tLabel));
    for (const each of document.querySelectorAll('[data-t-placeholder]'))
      each.placeholder = t(each.dataset.tPlaceholder);
    for (const listener of this.listeners)
      listener();
  },
};

/** @returns the text of `key` with {0}, {1}, ... filled; the key itself if it is missing */
function t(key, ...values) {
  const texts = TEXTS[key];
  const text = texts ? texts[LANGUAGES.indexOf(i18n.language)] : key;
  return text.replace(/\{(\d)\}/g, (whole, index) => String(values[index]));
}

/** @param texts  {en, zh} of the facts about commands; English if the other is missing */
function said(texts) {
  return texts ? texts[i18n.language] || texts.en || '' : '';
}
