// SPDX-License-Identifier: MIT
//
// The dialog with an entry of the log in full: its pictures, its JSON formatted.

'use strict';

/** Characters shown; laying out more takes the browser seconds. Copy copies all. */
const WHOLE_SHOWN = 300000;

let wholePictures = [];
let wholeForms = ['', '']; // the text as received, and as formatted JSON

async function showWhole(entry) {
  const text = await wholeTextOf(entry);
  const answer = entry.kind === 'sent' ? null : DeviceClient.parseAnswer(text);
  setText('whole-title', `${DIRECTIONS[entry.kind]} ${entry.name || commandName(text).slice(0, NAME_LIMIT)}`);
  setText('whole-size', `${clock(entry.time)} · ${t('characters', count(entry.length || text.length))}`);
  setText('whole-copy', t('copy'));
  wholeForms = [text, text.length <= PICTURE_TEXT ? formattedJson(answer ? answer.result : text) : ''];
  byId('whole-format').hidden = !wholeForms[1];
  formatWhole(Boolean(wholeForms[1]));
  showWholePictures(entry.kind === 'sent' || text.length > PICTURE_TEXT ? [] : picturesIn(text));
  byId('whole').showModal();
  byId('whole-text').focus();
  byId('whole-text').setSelectionRange(0, 0);
  byId('whole-text').scrollTop = 0;
}

/** Shows those that are pictures; only those can be saved. */
function showWholePictures(urls) {
  wholePictures = [];
  removeChildren(byId('whole-pictures'));
  for (const each of ['whole-pictures', 'whole-save'])
    byId(each).hidden = true;
  for (const url of urls) {
    const image = element('img');
    image.alt = t('log.picture');
    image.addEventListener('load', () => {
      wholePictures.push(url);
      byId('whole-pictures').append(image);
      for (const each of ['whole-pictures', 'whole-save'])
        byId(each).hidden = false;
    });
    image.src = url;
  }
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
