#!/usr/bin/env node
// SPDX-License-Identifier: MIT
//
// Generates everything derived from docs/commands.json: the JavaScript client's tables and types, the
// console's list, docs/protocol.md and docs/protocol.zh.md; and from the client's module the classic script.
// With --check nothing is written: it fails if an output is stale or the facts are inconsistent.
//
// docs/commands.json:
//   families  id, title (en, zh), in display order; topics, errors: headings of docs/ that its commands
//             link to
//   topics    commands with other topics or errors than their family's
//   commands  name, family, summary, and
//     needs      commands whose examples are carried out before this one's
//     split      how the server reads the argument text: none (not at all), whole (one field, commas
//                included), comma (split at ",", empty fields kept)
//     arguments  name, type (text, base64, hex: unchanged; integer; number; boolean, sent as 1 or 0;
//                color: 0xRRGGBB or decimal), example, about; choices if values have meanings;
//                optional, with the server's default; repeat: any number of this one
//     reply      kind (boolean, number, text, json, list separated by "|", pair "(x,y)", empty, none: no
//                answer at all), example ("..." leaves something out, and so does JSON leave out members),
//                which a test compares with the server's answer; and where they apply: pattern (a regular
//                expression of the answer, if it depends on the machine), always (nothing else is answered), late
//                (from a worker, when the work is done), to (all: to every client), mistakable (why a
//                page can't know whose request is answered; see mistakes below), alone (a second
//                request before the answer gets none of its own, or is answered out of order), dropped
//                (a waiting request gets none when AutoLivingBody arrives), question (a boolean whose
//                false is not a failure), otherFrames (more names of the frame), latin1 (bytes as
//                characters), image (base64 of one), timeout (minimum wait in seconds, if 10 are too
//                few), type (of json, for TypeScript)
//     tooFew     the result when required arguments are missing; nothing is done then
//     note       irregularities
//     pushes     events that may follow
//   events    id, kind (of the result), to (all, current), form, pattern, summary, example; match: what it
//             returns of the request that it belongs to
//   words     more words to find a command by, or all of a family: English, then Chinese
import { readFileSync, writeFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';
import { headings, slug } from '../site/headings.mjs';

const root = new URL('..', import.meta.url);
const read = (path) => readFileSync(new URL(path, root), 'utf8');
const facts = JSON.parse(read('docs/commands.json'));
const source = 'docs/commands.json by scripts/generate-reference.mjs';

// ---- Checking the facts -------------------------------------------------------------------------

const splits = ['none', 'whole', 'comma'];
const types = ['text', 'integer', 'number', 'boolean', 'base64', 'hex', 'color'];
const mistakes = {
  broadcast: 'Every client gets it',
  unasked: 'Every client gets it, and the server also sends it without a request',
  current: 'It goes to the client that sent the latest command by then, which may be another one',
};
const kinds = ['boolean', 'number', 'text', 'json', 'list', 'pair', 'empty', 'none'];

function faults() {
  const found = [];
  const need = (holds, what) => holds || found.push(what);
  const bothLanguages = (text) => text && text.en && text.zh;
  const registered = [...read('dispatch/commandlist.h').matchAll(/^COMMAND\((\w+),/gm)].map((m) => m[1]);
  const families = facts.families.map((family) => family.id);
  const events = facts.events.map((event) => event.id);
  const expected = families.flatMap((id) => registered.filter((name) =>
    facts.commands.some((command) => command.name === name && command.family === id)));
  const names = facts.commands.map((command) => command.name);
  for (const name of registered)
    need(names.includes(name), `${name} is missing`);
  for (const name of names)
    need(registered.includes(name), `${name} is not in dispatch/commandlist.h`);
  need(new Set(names).size === names.length, 'a command is listed twice');
  need(found.length > 0 || names.join() === expected.join(),
       'commands must be in the order of families, then in that of dispatch/commandlist.h');
  for (const command of facts.commands) {
    const here = (what) => `${command.name}: ${what}`;
    const args = command.arguments;
    need(families.includes(command.family), here('no such family'));
    need(bothLanguages(command.summary), here('a summary in both languages'));
    need(!command.note || bothLanguages(command.note), here('a note in both languages'));
    for (const name of command.needs || [])
      need(names.includes(name), here(`no such command: ${name}`));
    const { pattern, example } = command.reply;
    need(!pattern || new RegExp(`^(${pattern})$`).test(example.replaceAll('...', '')), here('the example does not match the pattern'));
    need(splits.includes(command.split), here('no such split'));
    need(kinds.includes(command.reply.kind), here('no such kind of reply'));
    need((command.reply.kind === 'none') === (command.reply.example === undefined), here('reply example'));
    need(!command.reply.mistakable || (command.reply.late && mistakes[command.reply.mistakable]),
         here('mistakable goes with late, and has one of three values'));
    need(!command.reply.mistakable || marks[command.family], here('its family needs a mark'));
    need(command.reply.to !== 'all' || ['broadcast', 'unasked'].includes(command.reply.mistakable),
         here('an answer to every client is mistakable'));
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
           here(`${argument.name} follows an optional one`));
      need(!argument.repeat || index === args.length - 1, here('only the last argument repeats'));
    });
    for (const id of command.pushes || [])
      need(events.includes(id), here(`no such event: ${id}`));
  }
  for (const name of facts.topics.flatMap((each) => each.commands))
    need(names.includes(name), `topics: no such command: ${name}`);
  for (const link of [...facts.families, ...facts.topics].flatMap(({ topics, errors = [] }) => [...topics, ...errors]))
    need(headingOf(link, 'en') && headingOf(link, 'zh'), `no such heading: ${link}`);
  for (const event of facts.events)
    need(bothLanguages(event.summary) && kinds.includes(event.kind), `event ${event.id}`);
  for (const name of Object.keys(facts.words))
    need(names.includes(name) || families.includes(name), `words of ${name}, which is no command or family`);
  return found;
}

// ---- The client's table -------------------------------------------------------------------------

const isFramed = (event) => event.form.startsWith('Begin');
/** All texts without a frame are the client's event `text`, except preview frames. */
const heardById = (event) => isFramed(event) || event.id === 'frame';

/** JavaScript source of a value, formatted as if by hand. */
function literal(value) {
  if (Array.isArray(value))
    return `[${value.map(literal).join(', ')}]`;
  if (value && typeof value === 'object')
    return `{ ${Object.entries(value).map(([key, each]) => `${key}: ${literal(each)}`).join(', ')} }`;
  return typeof value === 'string' ? `'${value}'` : String(value);
}

/**
 * Harmless commands, answered at once, by family: what arrives before the answer of one that was sent just
 * before a request is not the answer to the request. Of the same family, so that an access policy that
 * allows the request allows it too.
 */
const marks = {
  preview: 'bGetPreviewEnable', recording: 'isRecording', card: 'iReadCardBas_noPasamVX', face: 'lFaceFeatureMatch',
  fingerprint: 'bSaveZAZFPBMP',
};

function clientFacts(command) {
  const { kind, timeout, late, to, mistakable, alone, dropped, always, otherFrames, latin1 } = command.reply;
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
  const background = mistakable || (command.pushes || []).some((id) => id.startsWith('After'));
  const facts = {
    mark: background ? marks[command.family] : undefined,
    timeout: timeout && timeout * 1000, late, to, mistakable, alone, dropped, always: late && always, otherFrames, latin1,
  };
  for (const [key, value] of Object.entries(facts)) {
    if (value !== undefined)
      entry[key] = value;
  }
  return entry;
}

function clientTable() {
  const lines = (entries) => entries.map(([key, value]) => `  ${key}: ${literal(value)},\n`).join('');
  const framed = facts.events.filter(isFramed);
  return `// SPDX-License-Identifier: MIT
// Generated from ${source}.

/** What the client knows about each command; its types are in commands.d.ts. */
export const commands = {
${lines(facts.commands.map((command) => [command.name, clientFacts(command)]))}};

/** The kinds of result of framed events. */
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
// Generated from ${source}.

/** Text; numbers are written in decimal. */
export type Text = string | number;
/** A number or its decimal digits; the server reads an empty text as none. */
export type Numeric = number | string;
/** Sent as 1 or 0. */
export type Flag = boolean | number | string;

/**
 * What the portable device library says of a card; a maker's may say more, less or something else. Fields
 * of the card are there only if it was read, and dates are written like 1990-01-01.
 */
export interface Card {
  /** "0": read; "1": no reader; "2": no card; "3": it can't be read. */
  code?: string;
  /** 1: read; 0: not. */
  result?: number;
  /** Why it was not read. */
  message?: string;
  number?: string;
  [field: string]: unknown;
}
export interface IdCard extends Card {
  name?: string;
  sex?: string;
  nation?: string;
  birthDate?: string;
  address?: string;
  authority?: string;
  validFrom?: string;
  validTo?: string;
  /** A picture, base64. */
  photo?: string;
  serial?: string;
}
export interface SocialCard extends Card {
  name?: string;
  sex?: string;
  cardNumber?: string;
  nation?: string;
  birthDate?: string;
  validFrom?: string;
  validTo?: string;
  photo?: string;
}
export interface BankCard extends Card {
  /** Year and month: 2035-12. */
  expiry?: string;
}

/** Every command: its arguments and the result of its call. */
export interface Commands {
${members.join('')}}

/** What the server pushes. */
export interface PushedEvents {
${events.join('')}}

export interface CommandFacts {
  reply: 'boolean' | 'number' | 'text' | 'json' | 'list' | 'pair' | 'empty' | 'none';
  split?: 'whole' | 'comma';
  fields?: Record<string, 'text' | 'integer' | 'number' | 'boolean' | 'base64' | 'hex' | 'color'>;
  /** Number of required arguments, if some are optional. */
  required?: number;
  repeat?: true;
  /** Milliseconds. */
  timeout?: number;
  late?: true;
  to?: 'all';
  /** Why a page can't know whose request an answer is for. */
  mistakable?: 'broadcast' | 'unasked' | 'current';
  /** A command that is sent before: what arrives before its answer is of an earlier request. */
  mark?: string;
  alone?: true;
  dropped?: true;
  /** The only possible answer, of a late one. */
  always?: true;
  otherFrames?: string[];
  latin1?: true;
}
export const commands: Record<keyof Commands, CommandFacts>;
export const events: Record<string, CommandFacts['reply']>;
`;
}

// ---- The client as a classic script -------------------------------------------------------------

/** In the order in which they use each other. */
const modules = ['errors', 'texts', 'turns', 'preview', 'jobs', 'deviceclient'].map((name) => `client/${name}.js`);

function globalScript() {
  const declared = /^export (?=(?:async )?(?:class|const|function) (\w+))/gm;
  const texts = [clientTable(), ...modules.map(read)];
  const bodies = texts.map((text) => text.replace(/^\/\/ SPDX.*\n|^(?:import|export) [^;]*? from [^;]*;\n/gm, '')
      .replace(declared, '').trim());
  if (bodies.some((text) => /^(?:import|export)\b/m.test(text)))
    throw new Error('client/: an import or export that the generator does not support');
  const names = [...read('client/deviceclient.js').matchAll(/^export \{([^}]*)\} from/gm)]
      .flatMap(([, list]) => list.split(',').map((name) => name.trim()).filter(Boolean));
  return `// SPDX-License-Identifier: MIT
// Generated from the modules of client/ and ${source}: the same as
// a classic script, for pages without modules and from file://. All exports are properties of
// DeviceClient.
(function (global) {
'use strict';

${bodies.join('\n\n')}

global.DeviceClient = Object.assign(DeviceClient, {
  ${names.join(', ').replace(/(.{1,100})(?:, |$)/g, (_, part, at, all) => (at + _.length < all.length ? `${part},\n  ` : part))},
});
})(typeof globalThis === 'object' ? globalThis : this);
`;
}

// ---- The console's list -------------------------------------------------------------------------

function consoleScript() {
  return `// SPDX-License-Identifier: MIT
// Generated from ${source}; a classic script because file:// allows no
// modules.
window.deviceCommands = ${JSON.stringify(facts)};
`;
}

// ---- docs/protocol.md, docs/protocol.zh.md ------------------------------------------------------

const code = (text) => `\`${text}\``;
const bothOf = ({ en, zh }) => (en === zh ? en : `${en} ${zh}`);
const cell = (text) => text.replace(/\|/g, '\\|');
const call = (command, pick) => `${command.name}(${command.arguments.map(pick).join(',')})`;

const phrases = {
  en: {
    kinds: {
      boolean: '`true` or `false`', number: 'a number', text: 'a text', json: 'JSON', list: 'a list separated by `|`',
      pair: 'two numbers in parentheses', empty: 'the frame only',
    },
    mistakes,
    stop: '. ', end: '.', comma: ', ',
    noAnswer: 'No answer.',
    answer: 'Answer: ',
    always: (example) => `always ${example}`,
    latin1: ', its bytes as characters',
    example: (request, text) => `For example ${request} is answered ${text}`,
    otherFrames: (frames) => `, or framed with ${frames}`,
    depends: 'It depends on the machine',
    question: '`false` is not a failure',
    late: 'It is sent when the work is done',
    whose: (why) => `${why}: [whose request it answers](#whose-answer-it-is) can't be known`,
    few: (result) => `With too few arguments nothing is done, and the answer is ${result || 'empty'}`,
    optional: 'Optional', byDefault: (value) => `Optional; default ${value}`, repeat: 'Repeatable', switch: 'switch',
    types: {}, columns: '| Argument | Type | Meaning | Example |',
    whole: 'Takes the whole text between the parentheses, commas included.',
    needs: (commands) => `Comes after ${commands}.`,
    pushes: (events) => `May be followed by ${events}.`,
    more: (topics, errors) => `More: ${topics}. If it fails: ${errors}.`,
    unframed: 'Without a frame: ', to: { all: 'to every client', current: 'to the current client' },
    match: (key) => ` It belongs to the request with the same ${key}.`,
    unknown: ' [Whose request](#whose-answer-it-is) it belongs to can\'t be known.',
    index: 'Index', family: 'Family', commands: 'Commands', pushed: 'Pushed texts', event: 'Event',
  },
  zh: {
    kinds: {
      boolean: '`true` 或 `false`', number: '数字', text: '文本', json: 'JSON', list: '以 `|` 分隔的列表',
      pair: '括号中的两个数字', empty: '只有名称，结果为空',
    },
    mistakes: {
      broadcast: '所有客户端都会收到', unasked: '所有客户端都会收到，没有请求时服务也会发送',
      current: '发给那时最后发出命令的客户端，可能已是另一个',
    },
    stop: '。', end: '。', comma: '、',
    noAnswer: '没有应答。',
    answer: '应答：',
    always: (example) => `总是 ${example}`,
    latin1: '，每个字节作为一个字符',
    example: (request, text) => `例如 ${request} 的应答是 ${text}`,
    otherFrames: (frames) => `，或以 ${frames} 为名称`,
    depends: '内容因机器而异',
    question: '`false` 不表示失败',
    late: '工作完成后才发送',
    whose: (why) => `${why}，因此无法知道[应答属于谁](#应答属于谁)`,
    few: (result) => `参数不足时什么也不做，应答${result ? `为 ${result}` : '为空'}`,
    optional: '可省略', byDefault: (value) => `可省略，默认 ${value}`, repeat: '可重复', switch: '开关',
    types: { text: '文本', integer: '整数', number: '数字', color: '颜色' }, columns: '| 参数 | 类型 | 含义 | 示例 |',
    whole: '括号内的全部文本作为一个参数，逗号也包括在内。',
    needs: (commands) => `在 ${commands} 之后使用。`,
    pushes: (events) => `之后可能推送 ${events}。`,
    more: (topics, errors) => `详见：${topics}。失败时：${errors}。`,
    unframed: '不带名称：', to: { all: '发给所有客户端', current: '发给当前客户端' },
    match: (key) => `与 ${key} 相同的请求对应。`,
    unknown: '无法知道[属于哪个请求](#应答属于谁)。',
    index: '索引', family: '类别', commands: '命令', pushed: '推送的文本', event: '事件',
  },
};

const documents = new Map();
/** Headings of a page; null if there is none, as of one that is not translated. */
function headingsOf(file) {
  if (!documents.has(file)) {
    try {
      documents.set(file, headings(read(`docs/${file}`)));
    } catch (error) {
      if (error.code !== 'ENOENT')
        throw error;
      documents.set(file, null);
    }
  }
  return documents.get(file);
}

/** Text and address of a heading; in Chinese, if there is such a page, of the same one there. */
function headingOf(link, language) {
  const [file, fragment] = link.split('#');
  const english = headingsOf(file) ?? [];
  const at = fragment ? english.findIndex((each) => each.fragment === fragment) : 0;
  const translated = file.replace(/\.md$/, '.zh.md');
  const own = language === 'zh' && headingsOf(translated) ? translated : file;
  const heading = headingsOf(own)[at];
  return heading && { text: heading.text, address: own + (fragment ? `#${heading.fragment}` : '') };
}

class Page {
  constructor(language) {
    this.language = language;
    this.words = phrases[language];
  }

  /** Sentences, each without its end. */
  sentences(texts) {
    const { stop, end } = this.words;
    return texts.filter(Boolean).join(stop) + end;
  }

  answer(command) {
    const { name, reply, tooFew } = command;
    const { words } = this;
    if (reply.kind === 'none')
      return words.noAnswer;
    const what = reply.always && reply.kind === 'boolean' ? words.always(code(reply.example)) : words.kinds[reply.kind];
    const text = code(`Begin${name}${reply.example}End${name}`);
    const others = reply.otherFrames ? words.otherFrames(reply.otherFrames.map(code).join(words.comma)) : '';
    return words.answer + this.sentences([
      what + (reply.latin1 ? words.latin1 : ''),
      words.example(code(call(command, ({ example }) => example)), text) + others,
      reply.pattern && !['boolean', 'number'].includes(reply.kind) && words.depends,
      reply.question && words.question,
      reply.late && words.late,
      reply.mistakable && words.whose(words.mistakes[reply.mistakable]),
      tooFew !== undefined && words.few(tooFew && code(tooFew)),
    ]);
  }

  argumentRow(argument) {
    const { words, language } = this;
    const choices = (argument.choices ?? []).map((each) => `${code(each.value)} ${each[language]}`).join(words.comma);
    const missing = argument.optional && (argument.default ? words.byDefault(code(argument.default)) : words.optional);
    const about = this.sentences([argument.about[language].replace(/[.。]$/, ''), choices, missing, argument.repeat && words.repeat]);
    const type = argument.type === 'boolean' ? words.switch : words.types[argument.type] ?? argument.type;
    return `| ${argument.name} | ${type} | ${cell(about)} | ${argument.example ? code(cell(argument.example)) : ''} |\n`;
  }

  links(targets) {
    return targets.map((target) => headingOf(target, this.language)).map(({ text, address }) => `[${text}](${address})`)
        .join(this.words.comma);
  }

  commandSection(command) {
    const { words, language } = this;
    const rows = command.arguments.map((argument) => this.argumentRow(argument)).join('');
    const family = facts.families.find(({ id }) => id === command.family);
    const own = facts.topics.find(({ commands }) => commands.includes(command.name));
    const toCommand = (name) => `[${name}](#${name.toLowerCase()})`;
    const toEvent = (id) => `[${id}](#${slug(`${words.event} ${id}`)})`;
    return [
      `### ${command.name}`,
      command.summary[language],
      `    ${call(command, (argument) => argument.name + (argument.repeat ? ',...' : ''))}`,
      rows && `${words.columns}\n|---|---|---|---|\n${rows.trimEnd()}`,
      command.split === 'whole' && ['text', 'base64'].includes(command.arguments[0].type) && words.whole,
      this.answer(command),
      command.note && command.note[language],
      command.needs && words.needs(command.needs.map(toCommand).join(words.comma)),
      command.pushes && words.pushes(command.pushes.map(toEvent).join(words.comma)),
      words.more(this.links((own ?? family).topics), this.links(own?.errors ?? family.errors)),
    ].filter(Boolean).join('\n\n');
  }

  /** Of an event that ends what a command has started. */
  requestOf({ id, match }) {
    return match ? this.words.match(code(match)) : id.startsWith('After') ? this.words.unknown : '';
  }

  eventSection(event) {
    const { words, language } = this;
    const form = isFramed(event) ? code(event.form) : words.unframed + (language === 'zh' && event.formZh || event.form);
    return [`### ${words.event} ${event.id}`, event.summary[language],
      `${form}${language === 'zh' ? '；' : '; '}${words.to[event.to]}${words.end}${this.requestOf(event)}`].join('\n\n');
  }

  text() {
    const { words, language } = this;
    const intro = `docs/protocol-intro${language === 'zh' ? '.zh' : ''}.md`;
    const ofFamily = ({ id }) => facts.commands.filter((command) => command.family === id);
    const index = facts.families.map((family) => `| [${family.title[language]}](#${slug(family.title[language])}) | ${
      ofFamily(family).map(({ name }) => `[${name}](#${name.toLowerCase()})`).join(' ')} |`);
    return `<!-- Generated from ${intro} and ${source}. -->
${[
    read(intro).replace(/^<!--.*-->\n/, '').trim(),
    `## ${words.index}`,
    `| ${words.family} | ${words.commands} |\n|---|---|\n${index.join('\n')}`,
    ...facts.families.flatMap((family) =>
      [`## ${family.title[language]}`, ...ofFamily(family).map((command) => this.commandSection(command))]),
    `## ${words.pushed}`,
    ...facts.events.map((event) => this.eventSection(event)),
  ].join('\n\n')}
`;
  }
}

// ---- Writing ------------------------------------------------------------------------------------

const outputs = {
  'client/commands.js': clientTable,
  'client/commands.d.ts': clientTypes,
  'client/deviceclient.global.js': globalScript,
  'console/commands.js': consoleScript,
  'docs/protocol.md': () => new Page('en').text(),
  'docs/protocol.zh.md': () => new Page('zh').text(),
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
      // does not exist yet
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
