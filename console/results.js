// SPDX-License-Identifier: MIT
//
// The results of a script as a table, as CSV and as JUnit XML.

'use strict';

/** Rows of the table; the files have all. */
const RESULT_ROWS = 2000;

/** Control characters that XML doesn't allow, not even escaped. */
const NOT_IN_XML = /[\u0000-\u0008\u000b\u000c\u000e-\u001f\ufffe\uffff]/g;

function xmlText(text) {
  const escapes = { '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;', '\n': '&#10;', '\t': '&#9;' };
  return String(text).replace(NOT_IN_XML, '\ufffd').replace(/[&<>"\n\t]/g, (each) => escapes[each]);
}

const seconds = (milliseconds) => (milliseconds / 1000).toFixed(3);

/** @param run  { records, counts, startedAt, took } of a script; host: the server's address */
function junitXml({ records, startedAt, took }, host) {
  const failures = records.filter((each) => each.mark === 'bad').length;
  const totals = `tests="${records.length}" failures="${failures}" errors="0" skipped="0" time="${seconds(took)}"`;
  const cases = records.map(({ line, text, mark, result, milliseconds }) => {
    const head = `    <testcase classname="script.line${line}" name="${xmlText(text)}" time="${seconds(milliseconds)}"`;
    return mark === 'good' ? `${head}/>`
      : `${head}>\n      <failure message="${xmlText(result)}"/>\n    </testcase>`;
  });
  return `<?xml version="1.0" encoding="UTF-8"?>
<testsuites ${totals}>
  <testsuite name="console script" ${totals} timestamp="${startedAt.toISOString().slice(0, 19)}" hostname="${xmlText(host)}">
${cases.join('\n')}
  </testsuite>
</testsuites>
`;
}

/** For spreadsheets, which would calculate what begins like a formula. */
function csvCell(value) {
  const text = String(value);
  const safe = /^[=+\-@\t\r]/.test(text) && !/^-?\d+(\.\d+)?$/.test(text) ? `'${text}` : text;
  return /[",\r\n]/.test(safe) ? `"${safe.replace(/"/g, '""')}"` : safe;
}

function csvText({ records }) {
  const rows = records.map(({ time, line, text, mark, result, milliseconds }) =>
    [time.toISOString(), line, text, mark === 'good' ? 'passed' : 'failed', result, Math.round(milliseconds)]);
  return [['time', 'line', 'command', 'outcome', 'result', 'milliseconds'], ...rows]
      .map((row) => `${row.map(csvCell).join(',')}\r\n`).join('');
}

/** The dialog with the table. */
class Results {
  /** @param script  whose results are shown; address: returns that of the server */
  constructor(script, address) {
    this.script = script;
    byId('script-table').addEventListener('click', () => this.open());
    byId('results-close').addEventListener('click', () => byId('results').close());
    byId('results-failed').addEventListener('change', () => this.draw());
    byId('results-csv').addEventListener('click', () =>
      saveFile(`results-${fileStamp(new Date())}.csv`, `\ufeff${csvText(script)}`, 'text/csv;charset=utf-8'));
    byId('results-junit').addEventListener('click', () =>
      saveFile(`results-${fileStamp(new Date())}.xml`, junitXml(script, address()), 'application/xml'));
    byId('results').addEventListener('close', () => removeChildren(byId('results-rows')));
  }

  open() {
    this.draw();
    byId('results').showModal();
  }

  draw() {
    const { records } = this.script;
    const listed = byId('results-failed').checked ? records.filter((each) => each.mark === 'bad') : records;
    const rows = byId('results-rows');
    removeChildren(rows);
    for (const record of listed.slice(0, RESULT_ROWS))
      rows.append(this.rowOf(record));
    const shown = Math.min(listed.length, RESULT_ROWS);
    setText('results-count', t('results.count', count(shown), count(records.length)));
  }

  rowOf({ line, text, mark, result, milliseconds }) {
    const row = element('tr', mark);
    row.append(element('td', 'number'), element('td', 'mark', MARKS[mark]), element('td', 'sent', text),
               element('td', 'result', result), element('td', 'number', milliseconds ? duration(milliseconds) : ''));
    row.firstChild.append(button('link', String(line), () => {
      byId('results').close();
      this.script.goTo(line);
    }));
    return row;
  }
}
