#!/usr/bin/env node
// SPDX-License-Identifier: MIT
//
// Makes from docs/commands.json what tells of commands elsewhere: the client's tables and types, the
// console's list, docs/protocol.md; and from the client's module the script for old pages. With
// --check nothing is written: it fails when an output is stale, or the facts are not in order.
//
// docs/commands.json:
//   families  id, title (en, zh), in the order in which they are shown
//   commands  name, family, summary, and
//     split      how the server reads the argument text: none (not at all), whole (one field, commas
//                and all), comma (parted at ",", empty fields kept)
//     arguments  name, type (text, base64, hex: as they are; integer; number; boolean, sent as 1 or 0;
//                color: 0xRRGGBB or decimal), example, about; choices where values have meanings;
//                optional, with the default that the server takes; repeat: any number of this one
//     reply      kind (boolean, number, text, json, list parted by "|", pair "(x,y)", empty, none: no
//                answer at all), example; and where they hold: always (nothing else is answered), late
//                (from a worker, when it is done), to (all: to every page), alone (a second request
//                before the answer has none of its own, or answers out of turn), dropped (a request
//                that waits gets none when AutoLivingBody comes), question (a boolean whose false is
//                no failure), otherFrames (further names of the frame), latin1 (bytes as characters), image (base64 of one), timeout (how
//                many seconds to wait at least, when 10 are too few), type (of json, for TypeScript)
//     tooFew     the result when required arguments are missing; nothing is done then
//     note       what is irregular
//     pushes     events that may follow
//   events    id, kind (of the result), to (all, current), form, pattern, summary, example
import { readFileSync, writeFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';

const root = new URL('..', import.meta.url);
const read = (path) => readFileSync(new URL(path, root), 'utf8');
const facts = JSON.parse(read('docs/commands.json'));
const source = 'docs/commands.json by scripts/generate-reference.mjs';

// ---- Are the facts in order? --------------------------------------------------------------------

const splits = ['none', 'whole', 'comma'];
const types = ['text', 'integer', 'number', 'boolean', 'base64', 'hex', 'color'];
const kinds = ['boolean', 'number', 'text', 'json', 'list', 'pair', 'empty', 'none'];

function faults() {
  const found = [];
  const need = (holds, what) => holds || found.push(what);
  const bothLanguages = (text) => text && text.en && text.zh;
  const registered = [...read('dispatch/commandlist.h').matchAll(/^COMMAND\((\w+)\)/gm)].map((m) => m[1]);
  const families = facts.families.map((family) => family.id);
  const events = facts.events.map((event) => event.id);
  const expected = families.flatMap((id) => registered.filter((name) =>
    facts.commands.some((command) => command.name === name && command.family === id)));
  const names = facts.commands.map((command) => command.name);
  for (const name of registered)
    need(names.includes(name), `${name} is missing`);
  for (const name of names)
    need(registered.includes(name), `${name} is no command of dispatch/commandlist.h`);
  need(new Set(names).size === names.length, 'a command stands there twice');
  need(found.length > 0 || names.join() === expected.join(),
       'not in the order of families, and there in that of dispatch/commandlist.h');
  for (const command of facts.commands) {
    const here = (what) => `${command.name}: ${what}`;
    const args = command.arguments;
    need(families.includes(command.family), here('no such family'));
    need(bothLanguages(command.summary), here('a summary in both languages'));
    need(!command.note || bothLanguages(command.note), here('a note in both languages'));
    need(splits.includes(command.split), here('no such split'));
    need(kinds.includes(command.reply.kind), here('no such kind of reply'));
    need((command.reply.kind === 'none') === (command.reply.example === undefined), here('reply example'));
    need(!command.reply.question || (command.reply.kind === 'boolean' && !command.reply.always),
         here('only true and false answer a question'));
    need((command.split === 'none') === (args.length === 0), here('split none goes with no arguments'));
    need(command.split !== 'whole' || args.length === 1, here('split whole goes with one argument'));
    args.forEach((argument, index) => {
      need(types.includes(argument.type), here(`no such type: ${argument.type}`));
      need(bothLanguages(argument.about), here(`${argument.name} in both languages`));
      need(typeof argument.example === 'string', here(`${argument.name}: an example`));
      need(command.split !== 'comma' || !argument.example.includes(','), here(`${argument.name}: "," in its example`));
      need(argument.optional || !args.slice(0, index).some((before) => before.optional),
           here(`${argument.name} is behind an optional one`));
      need(!argument.repeat || index === args.length - 1, here('only the last argument repeats'));
    });
    for (const id of command.pushes || [])
      need(events.includes(id), here(`no such event: ${id}`));
  }
  for (const event of facts.events)
    need(bothLanguages(event.summary) && kinds.includes(event.kind), `event ${event.id}`);
  return found;
}

// ---- The client's table -------------------------------------------------------------------------

const isFramed = (event) => event.form.startsWith('Begin');
/** Texts without a frame are all the client's event `text`, but for the frames of the preview. */
const heardById = (event) => isFramed(event) || event.id === 'frame';

/** JavaScript source of a value, as one would write it by hand. */
function literal(value) {
  if (Array.isArray(value))
    return `[${value.map(literal).join(', ')}]`;
  if (value && typeof value === 'object')
    return `{ ${Object.entries(value).map(([key, each]) => `${key}: ${literal(each)}`).join(', ')} }`;
  return typeof value === 'string' ? `'${value}'` : String(value);
}

function clientFacts(command) {
  const { kind, timeout, late, to, alone, dropped, otherFrames, latin1 } = command.reply;
  const required = command.arguments.filter((argument) => !argument.optional).length;
  const entry = { reply: kind };
  if (command.arguments.length > 0) {
    entry.split = command.split;
    entry.fields = Object.fromEntries(command.arguments.map((argument) => [argument.name, argument.type]));
    if (required < command.arguments.length)
      entry.required = required;
    if (command.arguments.some((argument) => argument.repeat))
      entry.repeat = true;
  }
  const wholeSeconds = timeout && timeout * 1000;
  for (const [key, value] of Object.entries({ timeout: wholeSeconds, late, to, alone, dropped, otherFrames, latin1 })) {
    if (value !== undefined)
      entry[key] = value;
  }
  return entry;
}

function clientTable() {
  const lines = (entries) => entries.map(([key, value]) => `  ${key}: ${literal(value)},\n`).join('');
  const framed = facts.events.filter(isFramed);
  return `// SPDX-License-Identifier: MIT
// Made from ${source}.

/** What the client knows of each command; its types are in commands.d.ts. */
export const commands = {
${lines(facts.commands.map((command) => [command.name, clientFacts(command)]))}};

/** The kinds of the results of framed events. */
export const events = {
${lines(framed.map((event) => [event.id, event.kind]))}};
`;
}

// ---- The client's types -------------------------------------------------------------------------

const argumentTypes = {
  text: 'Text', base64: 'string', hex: 'string', color: 'Text', integer: 'Numeric', number: 'Numeric', boolean: 'Flag',
};
const resultTypes = {
  boolean: 'boolean', number: 'number', text: 'string', list: 'string[]', pair: '[number, number]', empty: 'void', none: 'void',
};
const resultType = ({ kind, type }) => resultTypes[kind] || type || 'any';

function signature(command) {
  const parameters = command.arguments.map((argument) => {
    const type = argumentTypes[argument.type];
    const name = ['switch', 'default'].includes(argument.name) ? `${argument.name}_` : argument.name;
    return argument.repeat ? `...${name}: ${type}[]` : `${name}${argument.optional ? '?' : ''}: ${type}`;
  });
  return `${command.name}(${parameters.join(', ')}): ${resultType(command.reply)}`;
}

function clientTypes() {
  const members = facts.commands.map((command) => {
    const about = command.arguments.map((argument) => `\n   * @param ${argument.name} ${argument.about.en}`).join('');
    const note = command.note ? `\n   * ${command.note.en}` : '';
    return `  /**\n   * ${bothOf(command.summary)}${note}${about}\n   */\n  ${signature(command)};\n`;
  });
  const events = facts.events.filter(heardById).map((event) =>
    `  /** ${bothOf(event.summary)} */\n  ${event.id}: ${resultType(event)};\n`);
  return `// SPDX-License-Identifier: MIT
// Made from ${source}.

/** A text; numbers are written in decimal. */
export type Text = string | number;
/** A number, or its decimal digits; an empty text is what the server takes for none. */
export type Numeric = number | string;
/** Sent as 1 or 0. */
export type Flag = boolean | number | string;

/** Every command: its arguments, and what its call gives. */
export interface Commands {
${members.join('')}}

/** What the server pushes. */
export interface PushedEvents {
${events.join('')}}

export interface CommandFacts {
  reply: 'boolean' | 'number' | 'text' | 'json' | 'list' | 'pair' | 'empty' | 'none';
  split?: 'whole' | 'comma';
  fields?: Record<string, 'text' | 'integer' | 'number' | 'boolean' | 'base64' | 'hex' | 'color'>;
  /** How many arguments there must be, where some may be left out. */
  required?: number;
  repeat?: true;
  /** In milliseconds. */
  timeout?: number;
  late?: true;
  to?: 'all';
  alone?: true;
  dropped?: true;
  otherFrames?: string[];
  latin1?: true;
}
export const commands: Record<keyof Commands, CommandFacts>;
export const events: Record<string, CommandFacts['reply']>;
`;
}

// ---- The client as a classic script -------------------------------------------------------------

function globalScript() {
  const exported = /^export (?=(?:class|const|function) (\w+))/gm;
  const modules = [clientTable(), read('client/deviceclient.js')];
  const names = modules.flatMap((text) => [...text.matchAll(exported)].map((match) => match[1]));
  const bodies = modules.map((text) => text.replace(/^\/\/ SPDX.*\n|^import .*\n/gm, '').replace(exported, '').trim());
  if (bodies.some((text) => /^(?:import|export)\b/m.test(text)))
    throw new Error('client/deviceclient.js: an import or export that the generator does not know');
  const rest = names.filter((name) => name !== 'DeviceClient');
  return `// SPDX-License-Identifier: MIT
// Made from client/deviceclient.js and ${source}: the same as a
// classic script, for pages without modules and from file://. All exports hang on DeviceClient.
(function (global) {
'use strict';

${bodies.join('\n\n')}

global.DeviceClient = Object.assign(DeviceClient, { ${rest.join(', ')} });
})(typeof globalThis === 'object' ? globalThis : this);
`;
}

// ---- The console's list -------------------------------------------------------------------------

function consoleScript() {
  return `// SPDX-License-Identifier: MIT
// Made from ${source}; a classic script, for file:// knows no other.
window.deviceCommands = ${JSON.stringify(facts)};
`;
}

// ---- docs/protocol.md ---------------------------------------------------------------------------

const code = (text) => `\`${text}\``;
const bothOf = ({ en, zh }) => (en === zh ? en : `${en} ${zh}`);
const cell = (text) => text.replace(/\|/g, '\\|');
const call = (command, pick) => `${command.name}(${command.arguments.map(pick).join(',')})`;

const kindNames = {
  boolean: '`true` or `false`', number: 'a number', text: 'a text', json: 'JSON', list: 'a list parted by `|`',
  pair: 'two numbers in parentheses', empty: 'nothing but the frame',
};

function answerOf({ name, reply, tooFew }) {
  if (reply.kind === 'none')
    return 'No answer.';
  const what = reply.always && reply.kind === 'boolean' ? `always \`${reply.example}\`` : kindNames[reply.kind];
  const parts = [`Answer: ${what}${reply.latin1 ? ', its bytes as characters' : ''}: ${code(`Begin${name}${reply.example}End${name}`)}`];
  if (reply.otherFrames)
    parts.push(`or framed with ${reply.otherFrames.map(code).join(', ')}`);
  const text = `${parts.join(', ')}.`;
  const question = reply.question ? ' `false` is no failure.' : '';
  const late = reply.late ? ` It comes when the work is done${reply.to === 'all' ? ', and goes to every page' : ''}.` : '';
  const few = tooFew === undefined ? '' : ` With too few arguments nothing is done, and the answer is ${tooFew ? code(tooFew) : 'empty'}.`;
  return text + question + late + few;
}

function argumentRow(argument) {
  const choices = argument.choices ? ` ${argument.choices.map((each) => `${code(each.value)} ${each.en}`).join(', ')}.` : '';
  const missing = !argument.optional ? ''
    : argument.default ? ` May be left out: ${code(argument.default)}.` : ' May be left out.';
  const repeat = argument.repeat ? ' As many as there are.' : '';
  const example = argument.example ? code(cell(argument.example)) : '';
  const type = argument.type === 'boolean' ? 'switch' : argument.type;
  return `| ${argument.name} | ${type} | ${cell(argument.about.en + choices + missing + repeat)} | ${example} |\n`;
}

function commandSection(command) {
  const rows = command.arguments.map(argumentRow).join('');
  const table = rows ? `\n| Argument | Type | Meaning | Example |\n|---|---|---|---|\n${rows}` : '';
  const whole = command.split === 'whole' && ['text', 'base64'].includes(command.arguments[0].type)
    ? '\nThe whole text between the parentheses is taken, commas too.\n' : '';
  const note = command.note ? `\n${command.note.en}\n` : '';
  const pushes = command.pushes ? `\nMay be followed by ${command.pushes.map((id) => `[${id}](#event-${id.toLowerCase()})`).join(', ')}.\n` : '';
  return `### ${command.name}

${bothOf(command.summary)}

    ${call(command, (argument) => argument.name + (argument.repeat ? ',...' : ''))}
${table}${whole}
${answerOf(command)}
${note}${pushes}
`;
}

function protocolPage() {
  const ofFamily = ({ id }) => facts.commands.filter((command) => command.family === id);
  const index = facts.families.map((family) =>
    `| ${bothOf(family.title)} | ${ofFamily(family).map(({ name }) => `[${name}](#${name.toLowerCase()})`).join(' ')} |\n`);
  const sections = facts.families.map((family) =>
    `## ${bothOf(family.title)}\n\n${ofFamily(family).map(commandSection).join('')}`);
  const events = facts.events.map((event) => `### Event ${event.id}

${bothOf(event.summary)}

${isFramed(event) ? code(event.form) : `Without a frame: ${event.form}`}; to ${event.to === 'all' ? 'every page' : 'the current page'}.
`);
  return `<!-- Made from docs/protocol-intro.md and ${source}. -->
${read('docs/protocol-intro.md').replace(/^<!--.*-->\n/, '').trim()}

## Index

| Family | Commands |
|---|---|
${index.join('')}
${sections.join('')}
## Pushed texts

${events.join('\n')}`.replace(/\n{3,}/g, '\n\n');
}

// ---- Writing ------------------------------------------------------------------------------------

const outputs = {
  'client/commands.js': clientTable,
  'client/commands.d.ts': clientTypes,
  'client/deviceclient.global.js': globalScript,
  'console/commands.js': consoleScript,
  'docs/protocol.md': protocolPage,
};

function main() {
  const check = process.argv[2] === '--check';
  if (process.argv.length > (check ? 3 : 2)) {
    console.error('usage: scripts/generate-reference.mjs [--check]');
    return 2;
  }
  const wrong = faults();
  for (const fault of wrong)
    console.error(`docs/commands.json: ${fault}`);
  if (wrong.length > 0)
    return 1;
  let stale = 0;
  for (const [path, make] of Object.entries(outputs)) {
    const text = make();
    const url = new URL(path, root);
    let before = null;
    try {
      before = readFileSync(url, 'utf8');
    } catch {
      // not there yet
    }
    if (before === text)
      continue;
    if (check) {
      console.error(`${path} is stale: run scripts/generate-reference.mjs`);
      stale += 1;
    } else {
      writeFileSync(url, text);
      console.log(`wrote ${fileURLToPath(url)}`);
    }
  }
  return stale > 0 ? 1 : 0;
}

process.exitCode = main();
