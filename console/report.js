// SPDX-License-Identifier: MIT
//
// A report to send to somebody: the state, the log, the script's results and the frame in one file,
// which any browser shows.

'use strict';

/** Characters of each entry of the log. */
const REPORT_TEXT = 1000;

const REPORT_STYLE = `body{font:14px/1.5 system-ui,sans-serif;max-width:1100px;margin:24px auto;padding:0 16px}
table{border-collapse:collapse;width:100%}td,th{border:1px solid #ccc;padding:2px 8px;text-align:left;vertical-align:top;
overflow-wrap:anywhere}td:first-child{white-space:nowrap}img{max-width:100%}.bad{color:#b00020}code{font-size:12px}`;

function htmlText(text) {
  return String(text).replace(NOT_IN_XML, '\ufffd').replace(/[&<>"]/g, (each) => `&#${each.charCodeAt(0)};`);
}

function htmlTable(rows) {
  return `<table>${rows.map(({ cells, bad }) =>
    `<tr${bad ? ' class="bad"' : ''}>${cells.map((cell) => `<td>${htmlText(cell)}</td>`).join('')}</tr>`).join('\n')}</table>`;
}

/** @param parts  title, facts, device, log, results: lists of rows { cells, bad }; frame: base64, ''; caption */
function reportHtml({ title, facts: general, device, log: entries, results, frame, caption }) {
  const section = (key, content) => (content ? `<h2>${htmlText(t(key))}</h2>\n${content}\n` : '');
  return `<!DOCTYPE html>
<html lang="${i18n.language}"><head><meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; img-src data:; style-src 'unsafe-inline'">
<title>${htmlText(title)}</title><style>${REPORT_STYLE}</style></head><body>
<h1>${htmlText(title)}</h1>
${htmlTable(general)}
${section('device', htmlTable(device))}${section('preview', frame
    && `<p>${htmlText(caption)}</p><img alt="" src="data:image/jpeg;base64,${htmlText(frame)}">`)}${
  section('script.results', results.length ? htmlTable(results) : '')}${section('log', htmlTable(entries))}</body></html>
`;
}

/** The entries of a log as rows. */
function reportLog(entries) {
  return entries.map((entry) => ({ bad: entry.error, cells: [
    `${day(entry.time)} ${clock(entry.time)}`, DIRECTIONS[entry.kind],
    shorten(withoutPictures(entry.say ? entry.say() : entry.raw), REPORT_TEXT),
    [].concat(...[entry.status, entry.hint].filter(Boolean).map((say) => say())).filter((part) => typeof part === 'string')
        .join(' '),
  ] }));
}
