// SPDX-License-Identifier: MIT
//
// Keys that work on the whole page, and the dialog that lists all keys.

'use strict';

const HELP_KEYS = [
  ['/   Ctrl+K', 'help.search'], ['↑ ↓ ← →', 'help.tree'], ['Enter', 'help.enter'],
  ['F', 'help.favourite'], ['Ctrl+Enter', 'help.send'], ['Alt+1  2  3  4  5', 'help.tabs'],
  ['+  −  0  1  ↑ ↓ ← →', 'help.preview'], ['↑ ↓  Enter  C  R  W', 'help.log'],
  ['← → ↑ ↓  Home', 'help.split'], ['Esc', 'help.escape'], ['?   F1', 'help.here'],
];

function showHelp() {
  removeChildren(byId('help-keys'));
  for (const [keys, what] of HELP_KEYS) {
    const pair = element('div');
    const term = element('dt');
    for (const key of keys.split(/\s+/))
      term.append(element('kbd', '', key), ' ');
    pair.append(term, element('dd', '', t(what)));
    byId('help-keys').append(pair);
  }
  if (!byId('help-box').open)
    byId('help-box').showModal();
}

byId('help').addEventListener('click', showHelp);
byId('help-close').addEventListener('click', () => byId('help-box').close());

function focusSearch() {
  byId('search').focus();
  byId('search').select();
}

const PANE_KEYS = {
  1: () => { showTab('command'); byId('command').focus(); },
  2: () => { showTab('script'); byId('script').focus(); },
  3: () => byId('log').focus(),
  4: () => byId('stage').focus(),
  5: () => { showTab('recipes'); byId('recipes').querySelector('button').focus(); },
};

document.addEventListener('keydown', (event) => {
  if (event.isComposing || document.querySelector('dialog[open]'))
    return;
  const typing = /^(INPUT|TEXTAREA|SELECT)$/.test(event.target.tagName);
  let act = null;
  if (event.ctrlKey && event.key === 'Enter')
    act = byId('pane-script').hidden ? () => form.submit() : () => script.run();
  else if (event.ctrlKey && keyOf(event) === 'k')
    act = focusSearch;
  else if (event.altKey && PANE_KEYS[event.key])
    act = PANE_KEYS[event.key];
  else if (event.key === 'F1' || (event.key === '?' && !typing))
    act = showHelp;
  else if (event.key === '/' && !typing)
    act = focusSearch;
  else if (event.key === 'Escape' && script.running)
    act = () => script.stop();
  if (act) {
    event.preventDefault();
    act();
  }
});
