// SPDX-License-Identifier: MIT
//
// The dialog with an entry of the log in full: its pictures, its JSON formatted.

'use strict';

/** Characters shown; laying out more takes the browser seconds. Copy copies all. */
const WHOLE_SHOWN = 300000;

let wholePictures = [];
let wholeForms = ['', '']; // the text as received, and as formatted JSON

function showWhole(entry) {
  const text = entry.raw || (entry.say ? entry.say() : '');
  setText('whole-title', `${DIRECTIONS[entry.kind]} ${entry.name || commandName(text).slice(0, NAME_LIMIT)}`);
  setText('whole-size', `${clock(entry.time)} · ${t('characters', count(text.length))}`);
  setText('whole-copy', t('copy'));
  wholeForms = [text, formattedJson(entry.text)];
  byId('whole-format').hidden = !wholeForms[1];
  formatWhole(Boolean(wholeForms[1]));
  wholePictures = entry.kind === 'sent' ? [] : picturesIn(text);
  removeChildren(byId('whole-pictures'));
  for (const url of wholePictures) {
    const image = element('img');
    image.alt = t('log.picture');
    image.src = url;
    byId('whole-pictures').append(image);
  }
  byId('whole-pictures').hidden = !wholePictures.length;
  byId('whole-save').hidden = !wholePictures.length;
  byId('whole').showModal();
  byId('whole-text').focus();
  byId('whole-text').setSelectionRange(0, 0);
  byId('whole-text').scrollTop = 0;
}

function formatWhole(formatted) {
  const text = wholeForms[formatted ? 1 : 0];
  byId('whole-text').value = text.length <= WHOLE_SHOWN ? text
    : `${text.slice(0, WHOLE_SHOWN)}…\n\n${t('whole.cut', count(WHOLE_SHOWN), count(text.length))}`;
  byId('whole-format').setAttribute('aria-pressed', String(formatted));
}

byId('whole-format').addEventListener('click', () => {
  formatWhole(byId('whole-format').getAttribute('aria-pressed') === 'false');
});
byId('whole-copy').addEventListener('click', async () => {
  const formatted = byId('whole-format').getAttribute('aria-pressed') === 'true';
  setText('whole-copy', t(await copyText(wholeForms[formatted ? 1 : 0]) ? 'copied' : 'copy.failed'));
});
byId('whole-save').addEventListener('click', () => {
  wholePictures.forEach((url, index) => {
    const type = /image\/(\w+)/.exec(url)[1];
    saveFile(`result-${fileStamp(new Date())}-${index + 1}.${type === 'jpeg' ? 'jpg' : type}`,
             bytesOf(url.slice(url.indexOf(',') + 1)), `image/${type}`);
  });
});
byId('whole-close').addEventListener('click', () => byId('whole').close());
byId('whole').addEventListener('close', () => { // frees what may be megabytes
  byId('whole-text').value = '';
  removeChildren(byId('whole-pictures'));
  wholePictures = [];
  wholeForms = ['', ''];
});
