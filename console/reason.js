// SPDX-License-Identifier: MIT
//
// Why a command has failed: what the server has written to its log. A page may read that with the same
// commands as any file, unless an access policy forbids it.

'use strict';

/** The log's newest file has a name like this. */
const LOG_FILE = /(?:^|\/)(vx_log_\d{4}-\d\d-\d\d\.txt)$/;

/** Characters of base64 at the file's end that are looked at: 3 MB. */
const LOG_END = 4e6;

/** Lines that are shown. */
const REASON_LINES = 5;

/** The line of a text that has arrived. */
const ARRIVAL = / slot_textMessageReceived \w+ "/;

/** A line that says only where the program is. */
const TRACE = /^\d+ [\w()]+ \w+(?: |$)/;

/** A text of a page as the log writes it. */
function asLogged(text) {
  return text.replace(/[\\"]/g, '\\$&').replace(/\n/g, '\\n').replace(/\r/g, '\\r').replace(/\t/g, '\\t');
}

/**
 * The lines about one text.
 * @param log   the log's end
 * @param sent  the text
 * @param later how many of the same text were sent after it
 * @param late  whether the work goes on while later texts arrive
 * @returns lines; null if the text isn't there
 */
function reasonLines(log, sent, later, late) {
  const lines = log.split('\n');
  const wanted = `"${asLogged(sent).slice(0, 200)}`;
  const arrivals = lines.map((line, i) => (ARRIVAL.test(line) && line.includes(wanted) ? i : -1)).filter((i) => i >= 0);
  const start = arrivals[arrivals.length - 1 - later];
  if (start === undefined)
    return null;
  const length = lines.slice(start + 1).findIndex((line) => ARRIVAL.test(line));
  const telling = (some) => some.filter((line) => line.trim() && !line.startsWith('"') && !TRACE.test(line));
  const own = telling(length < 0 ? lines.slice(start + 1) : lines.slice(start + 1, start + 1 + length));
  const found = own.length || !late ? own : telling(lines.slice(start + 1));
  return found.slice(0, REASON_LINES);
}

/** The text at the end of a file in base64. */
function endOf(base64) {
  const start = Math.max(0, Math.ceil((base64.length - LOG_END) / 4) * 4);
  return new TextDecoder().decode(bytesOf(base64.slice(start)));
}

/** Where the log may be: where somebody said, beside the program, in the user's state, in a source tree. */
function logFolders() {
  const here = location.protocol === 'file:' ? decodeURI(location.pathname).replace(/\/console\/[^/]*$/, '') : '';
  return [settings.get('log.folder', ''), '/proc/self/cwd/log', '/proc/self/cwd/.local/state/rvowebsocketserver/log',
    ...(here ? [`${here}/log`, `${here}/build/release/log`] : [])].filter(Boolean);
}

class Reasons {
  /**
   * @param ask     sends a text without logging it, resolves to { outcome, result }
   * @param log     of the page
   */
  constructor(ask, log) {
    this.ask = ask;
    this.log = log;
    this.kept = null; // the latest reading: when it began, and a promise of the text
  }

  /** Puts the reason of an answer below it. */
  async explain(entry) {
    this.log.update(entry, { hint: () => t('why.reading') });
    const { time, text } = await this.logSince(entry.time);
    const sent = entry.asked;
    const later = this.log.entries.slice(this.log.entries.indexOf(entry)).filter((each) => each.kind === 'sent'
      && each.raw === sent && each.time <= time).length;
    const known = commandOf(commandName(sent));
    const lines = text === null ? null : reasonLines(text, sent, later, Boolean(known && known.reply.late));
    const count = known ? () => countWarning(known, sent) : () => '';
    this.log.update(entry, { hint: () => [...this.said(text, lines), count()].filter(Boolean) });
  }

  said(text, lines) {
    if (text === null)
      return [t('why.unread'), t('why.where'), this.folderField()];
    if (lines === null)
      return [t('why.missing', this.file)];
    return lines.length ? lines : [t('why.silent')];
  }

  /** What was read after a time; reading a long log keeps the server busy for a second, so not each time. */
  async logSince(time) {
    if (!this.kept || this.kept.time < time)
      this.kept = { time: new Date(), text: this.read() };
    const { kept } = this;
    const text = await kept.text;
    if (text === null && this.kept === kept)
      this.kept = null; // somebody may say where it is
    return { time: kept.time, text };
  }

  /** @returns the log's end; null if it can't be read */
  async read() {
    for (const folder of logFolders()) {
      const { outcome, result } = await this.ask(`sGetAllFormatFiles(${folder},txt)`);
      if (outcome !== 'answered')
        return null;
      const names = result.split('|').map((name) => LOG_FILE.exec(name)).filter(Boolean).map((match) => match[1]);
      const newest = names.sort().pop();
      const file = newest ? await this.ask(`Base64Encode(${folder}/${newest})`) : {};
      if (!file.result)
        continue;
      this.file = `${folder}/${newest}`;
      return endOf(file.result);
    }
    return null;
  }

  /** A field for the folder, for the next time. */
  folderField() {
    const field = element('input', 'log-folder');
    field.placeholder = t('why.folder');
    field.value = settings.get('log.folder', '');
    field.setAttribute('aria-label', t('why.folder'));
    field.addEventListener('change', () => settings.set('log.folder', field.value.trim().replace(/\/+$/, '')));
    return field;
  }
}
