// SPDX-License-Identifier: MIT
//
// The language of scripts: a command a line, variables, loops, waits and expectations. README.md has
// its table.

'use strict';

/** Seconds that "wait for" waits if the line doesn't say. */
const EVENT_SECONDS = 10;

/** The kinds of lines that aren't commands: a pattern, and what it makes of its match. */
const LINE_KINDS = [
  [/^wait\s+(\d{1,7})$/i, (match) => ({ kind: 'wait', milliseconds: Number(match[1]) })],
  [/^wait\s+for\s+(\w+)(?:\s+(\d{1,5}))?$/i,
    (match) => ({ kind: 'event', name: match[1], seconds: Number(match[2] || EVENT_SECONDS) })],
  [/^repeat\s+(\d{1,9}|\$\{[\w.]+\})$/i, (match) => ({ kind: 'repeat', times: match[1] })],
  [/^for\s+([A-Za-z_]\w*)\s+in\s+(.+)$/i, (match) => ({ kind: 'for', name: match[1], list: match[2] })],
  [/^end$/i, () => ({ kind: 'end' })],
  [/^expect\s+(not\s+)?(.+)$/i, (match) => ({ kind: 'expect', not: Boolean(match[1]), value: match[2] })],
  [/^([A-Za-z_]\w*)\s*=\s*(.*)$/, ([, name, value]) => (isCommand(value)
    ? { kind: 'command', text: value, keep: name } : { kind: 'set', name, value })],
];

/** Words that begin a line of one of these kinds, and so no command. */
const KEYWORDS = /^(?:wait|repeat|for|end|expect)\b(?!\()/i;

function isCommand(text) {
  return /^\w+\(/.test(text) || facts.byName.has(text);
}

/** @returns a parsed line; null for blank lines and comments; kind 'fault' if it isn't understood */
function parseLine(line) {
  const text = line.trim();
  if (!text || text.startsWith('#'))
    return null;
  for (const [pattern, make] of LINE_KINDS) {
    const match = pattern.exec(text);
    if (match)
      return { text, ...make(match) };
  }
  return { text, kind: KEYWORDS.test(text) ? 'fault' : 'command', fault: 'script.fault.line' };
}

/**
 * A script as steps: { kind, text, line, ... }. Loops know their end and ends their loop, by the places
 * among the steps. A command before an "expect" leaves its judgement to that.
 */
function parseScript(text) {
  const steps = [];
  const open = [];
  text.split('\n').forEach((source, line) => {
    const step = parseLine(source);
    if (!step)
      return;
    const place = steps.push(step) - 1;
    step.line = line;
    if (['repeat', 'for'].includes(step.kind))
      open.push(place);
    else if (step.kind === 'end' && open.length)
      step.loop = open.pop();
    else if (step.kind === 'end')
      Object.assign(step, { kind: 'fault', fault: 'script.fault.end' });
    if (step.kind === 'end')
      steps[step.loop].end = place;
    if (step.kind === 'expect' && place > 0)
      steps[place - 1].judged = true;
  });
  for (const place of open)
    Object.assign(steps[place], { kind: 'fault', fault: 'script.fault.open' });
  return steps;
}

/** What a script has set: ${name}, and of JSON or a list its parts: ${card.name}, ${codes.0}. */
class Variables {
  constructor() {
    this.values = new Map();
  }

  set(name, value) {
    this.values.set(name, String(value));
  }

  /** @throws Error that names what is missing */
  filled(text) {
    return text.replace(/(\$?)\$\{([\w.]+)\}/g, (whole, escape, path) => (escape ? whole.slice(1) : this.lookUp(path)));
  }

  lookUp(path) {
    const [name, ...parts] = path.split('.');
    let value = this.values.get(name);
    for (const part of parts)
      value = value === undefined ? value : partOf(value, part);
    if (value === undefined || value === null)
      throw new Error(t('script.fault.variable', path));
    return typeof value === 'object' ? JSON.stringify(value) : String(value);
  }
}

function partOf(value, part) {
  let whole = value;
  if (typeof value === 'string') {
    try {
      whole = JSON.parse(value);
    } catch {
      whole = null; // a list of the protocol
    }
    if (whole === null || typeof whole !== 'object')
      whole = value.split('|');
  }
  return Object.prototype.hasOwnProperty.call(whole, part) ? whole[part] : undefined;
}

/** Whether a result is as expected: a text, or /a pattern/. */
function isAsExpected(result, expected) {
  const pattern = /^\/(.+)\/(i?)$/.exec(expected);
  return pattern ? new RegExp(pattern[1], pattern[2]).test(result) : result === expected.replace(/^""$/, '');
}
