// SPDX-License-Identifier: MIT
//
// Commands, answers and events as texts of the protocol.
import { commands, events } from './commands.js';
import { ArgumentError, UnknownCommandError } from './errors.js';

/** The bytes FF D8 FF at the start of every JPEG, and so of every frame, in base64. */
export const frameStart = '/9j/';

/** In bytes. The server disconnects a page that sends a longer message. */
const maxMessage = 256 * 1024 * 1024;

/** Names are shorter: the search for the end of an answer looks no further back. */
const nameLimit = 100;

/** The entry of a name in a table, ignoring inherited members such as "toString". */
export function entryOf(table, name) {
  return Object.prototype.hasOwnProperty.call(table, name) ? table[name] : undefined;
}

export const frameNames = new Map();
for (const [name, { otherFrames }] of Object.entries(commands)) {
  for (const other of otherFrames || [])
    frameNames.set(other, name);
}

/**
 * Parses "Begin<name><result>End<name>". Nothing separates the name from the result, so the name is
 * found at the end of the text; results may contain "End" and names may end with it.
 *
 * @returns {{name: string, result: string}|null} null if the text is not framed
 */
export function parseAnswer(text) {
  if (!text.startsWith('Begin'))
    return null;
  const nameStart = 'Begin'.length;
  let other = null;
  let end = text.lastIndexOf('End');
  while (end >= nameStart && text.length - end < nameLimit) {
    const name = text.slice(end + 'End'.length);
    const resultStart = nameStart + name.length;
    if (name && resultStart <= end && text.startsWith(name, nameStart)) {
      const answer = { name, result: text.slice(resultStart, end) };
      if (entryOf(commands, name) || entryOf(events, name) || frameNames.has(name))
        return answer;
      other = other || answer;
    }
    end = text.lastIndexOf('End', end - 1);
  }
  return other;
}

/** Argument types on the wire; the server takes an empty number for a missing one. */
const forms = {
  integer: [/^([+-]?\d+)?$/, 'a whole number'],
  number: [/^([+-]?\d+(\.\d+)?)?$/, 'a number'],
  boolean: [/^[01]$/, 'true or false, 1 or 0'],
};

/** An argument as { text } for the wire, or { fault }: what is wrong with it. */
function fieldOf(type, value, splitAtCommas) {
  const sent = type === 'boolean' && typeof value === 'boolean' ? Number(value) : value;
  if (typeof sent !== 'string' && typeof sent !== 'number')
    return { fault: `must be a text or a number, not ${sent === null ? 'null' : typeof sent}` };
  const text = String(sent);
  const [form, what] = forms[type] || [];
  if (form && !form.test(text))
    return { fault: `must be ${what}, not ${JSON.stringify(text)}: the server would read 0` };
  if (text.includes('\0'))
    return { fault: 'contains a NUL character, at which the device library would cut the text off' };
  if (splitAtCommas && text.includes(','))
    return { fault: 'contains a ",", which separates arguments in the protocol' };
  return { text };
}

/**
 * The text that call() sends.
 *
 * @throws UnknownCommandError, ArgumentError
 */
export function commandText(name, args) {
  const fact = entryOf(commands, name);
  if (!fact)
    throw new UnknownCommandError(String(name));
  const { split, fields = {}, repeat, required } = fact;
  const names = Object.keys(fields);
  const given = args.slice();
  while (given.length > 0 && given[given.length - 1] === undefined)
    given.pop(); // same as left out
  const minimum = required === undefined ? names.length : required;
  if (given.length < minimum)
    throw new ArgumentError(name, `needs ${minimum} arguments (${names.join(', ')}), got ${given.length}`);
  if (given.length > names.length && !repeat)
    throw new ArgumentError(name, `takes ${names.length || 'no'} arguments, got ${given.length}`);
  const texts = given.map((value, index) => {
    const field = names[Math.min(index, names.length - 1)];
    const { text, fault } = fieldOf(fields[field], value === undefined ? '' : value, split === 'comma');
    if (fault)
      throw new ArgumentError(name, `${field} ${fault}`);
    return text;
  });
  const text = `${name}(${texts.join(',')})`;
  if (text.length > maxMessage)
    throw new ArgumentError(name, 'longer than the 256 MiB that the server accepts');
  return text;
}

export function jsonOr(text) {
  try {
    return JSON.parse(text);
  } catch {
    return text || null; // a vendor's device library may answer with its own texts
  }
}

/** Decodes a text whose characters are bytes of UTF-8; unchanged if they are not. */
function utf8Of(latin1) {
  try {
    return new TextDecoder('utf-8', { fatal: true })
        .decode(Uint8Array.from(latin1, (character) => character.charCodeAt(0)));
  } catch {
    return latin1;
  }
}

const results = {
  boolean: (text) => text === 'true',
  number: (text) => Number(text),
  text: (text) => text,
  json: jsonOr,
  list: (text) => (text === '' ? [] : text.split('|')),
  pair: (text) => text.slice(1, -1).split(',').map(Number),
  empty: () => undefined,
};

/** The result of an answer or event of this name, in its type; the text for unknown names. */
export function resultOf(name, text) {
  const fact = entryOf(commands, name) || {};
  const kind = fact.reply && fact.reply !== 'none' ? fact.reply : entryOf(events, name) || 'text';
  return results[kind](fact.latin1 ? utf8Of(text) : text);
}
