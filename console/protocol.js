// SPDX-License-Identifier: MIT
//
// How commands read, what is known about each (commands.js), and which one an answer belongs to.

'use strict';

/** Every JPEG file begins with the bytes FF D8 FF, and so every frame with these characters. */
const FRAME_START = '/9j/';

/** Pictures in a result: base64 of a JPEG or PNG, alone or inside of JSON and lists. */
const PICTURES = /(\/9j\/|iVBORw0KGgo)[A-Za-z0-9+/]{80,}={0,2}/g;

/** Titles show no more of a name. */
const NAME_LIMIT = 100;

/** What is known: families in order, commands, and a command by its name. */
const facts = {
  families: window.deviceCommands ? window.deviceCommands.families : [],
  commands: window.deviceCommands ? window.deviceCommands.commands : [],
  byName: new Map(),
  byFrame: new Map(), // other names that answers come under
  events: new Map(),
};
for (const command of facts.commands) {
  facts.byName.set(command.name, command);
  for (const frame of command.reply.otherFrames || [])
    facts.byFrame.set(frame, command.name);
}
for (const event of window.deviceCommands ? window.deviceCommands.events : [])
  facts.events.set(event.id, event);

/** The name in a text to send as the server reads it; '' for its two kinds of other messages. */
function commandName(text) {
  if (text.startsWith('@') || text.startsWith('#'))
    return '';
  const bracket = text.indexOf('(');
  return bracket < 0 ? text : text.slice(0, bracket);
}

/** Whether a text to send gets an answer at all, as far as is known. */
function isAnswered(text) {
  const name = commandName(text);
  const known = facts.byName.get(name);
  return Boolean(name) && !(known && known.reply.kind === 'none');
}

/** The argument text as the server reads it: all but the last character after the first "(". */
function argumentText(text) {
  const bracket = text.indexOf('(');
  return bracket < 0 ? '' : text.slice(bracket + 1, Math.max(bracket + 1, text.length - 1));
}

/** Whether a result says that something went wrong; the "false" of a question doesn't. */
function isFailure(name, result) {
  const known = facts.byName.get(facts.byFrame.get(name) || name);
  return result === 'false' && !(known && known.reply.question);
}

/** @returns data URLs of the pictures in a text, the first few */
function picturesIn(text) {
  return (text.match(PICTURES) || []).slice(0, 4).map((base64) => {
    const type = base64.startsWith(FRAME_START) ? 'jpeg' : 'png';
    // A cut text decodes up to whole groups of four.
    return `data:image/${type};base64,${base64.slice(0, base64.length - (base64.length % 4))}`;
  });
}

/** The same text with the beginnings of its pictures only. */
function withoutPictures(text) {
  return text.replace(PICTURES, (base64) => `${base64.slice(0, 16)}…`);
}

/** @returns a result as JSON with line breaks; '' when it is none that gains by it */
function formattedJson(text) {
  try {
    const value = JSON.parse(text);
    return value !== null && typeof value === 'object' ? JSON.stringify(value, null, 2) : '';
  } catch {
    return '';
  }
}

/** What may be wrong with a command that got no answer. */
function noAnswerHint(name) {
  if (name !== name.trim())
    return t('hint.blank');
  if (facts.byName.has(name))
    return t('hint.busy');
  const meant = facts.commands.find((known) => known.name.toLowerCase() === name.toLowerCase());
  return meant ? t('hint.case', meant.name) : t('hint.unknown');
}

/** What is likely not meant in a text that is about to be sent; '' when nothing is. */
function typingHint(text) {
  if (!commandName(text))
    return '';
  if (text.includes('(') && !text.endsWith(')'))
    return t('hint.bracket');
  if (facts.commands.length && text.trim() && !facts.byName.has(commandName(text)))
    return noAnswerHint(commandName(text));
  return '';
}

/** A command without an answer for so long gets a hint, unless its facts say that it takes longer. */
const LATE_SECONDS = 5;

/** More commands than this don't wait at a time; the oldest is given up. */
const WAITING_LIMIT = 500;

/** Finds the command that an answer belongs to; the protocol has nothing but the name for it. */
class Exchanges {
  constructor() {
    this.waiting = []; // { name, quiet, sent, late, timer, told }, oldest first
  }

  /**
   * @param told  called with ('answered', result, milliseconds), ('late') (perhaps 'answered'
   *              follows), or ('lost') when it is given up before it was late
   * @param quiet whether the answer isn't to be listed
   */
  sent(name, told, quiet = false) {
    const known = facts.byName.get(name);
    const exchange = { name, quiet, sent: performance.now(), late: false, timer: 0, told };
    exchange.timer = setTimeout(() => {
      exchange.late = true;
      told('late');
    }, 1000 * (known && known.reply.timeout || LATE_SECONDS));
    this.waiting.push(exchange);
    if (this.waiting.length > WAITING_LIMIT)
      this.giveUp(this.waiting.splice(0, 1));
  }

  /** @returns { milliseconds, quiet } of the command; null when none waits for this name */
  answered(answerName, result) {
    const name = facts.byFrame.get(answerName) || answerName;
    const ofName = (exchange) => exchange.name === answerName || exchange.name === name;
    // One whose answer went to another page must not take the answers of all that follow.
    const exchange = this.waiting.find((each) => ofName(each) && !each.late)
        || this.waiting.find(ofName);
    if (!exchange)
      return null;
    const milliseconds = performance.now() - exchange.sent;
    clearTimeout(exchange.timer);
    this.waiting.splice(this.waiting.indexOf(exchange), 1);
    exchange.told('answered', result, milliseconds);
    return { milliseconds, quiet: exchange.quiet };
  }

  /** The connection is gone, and with it every answer. */
  giveUpAll() {
    this.giveUp(this.waiting.splice(0));
  }

  giveUp(given) {
    for (const exchange of given) {
      clearTimeout(exchange.timer);
      if (!exchange.late)
        exchange.told('lost');
    }
  }
}
