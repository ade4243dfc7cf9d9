// SPDX-License-Identifier: MIT
//
// Parsing commands, the facts about them (commands.js), and matching answers to them.

'use strict';

/** The bytes FF D8 FF at the start of every JPEG, and so of every frame, in base64. */
const FRAME_START = '/9j/';

/** Pictures in a result: base64 of a JPEG or PNG, alone or inside JSON and lists. */
const PICTURES = /(\/9j\/|iVBORw0KGgo)[A-Za-z0-9+/]{80,}={0,2}/g;

/** Characters of a name shown in titles. */
const NAME_LIMIT = 100;

/** Families in order, commands, and commands and events by name. */
const facts = {
  families: window.deviceCommands ? window.deviceCommands.families : [],
  commands: window.deviceCommands ? window.deviceCommands.commands : [],
  byName: new Map(),
  byFrame: new Map(), // other names that answers use
  events: new Map(),
};
for (const command of facts.commands) {
  facts.byName.set(command.name, command);
  for (const frame of command.reply.otherFrames || [])
    facts.byFrame.set(frame, command.name);
}
for (const event of window.deviceCommands ? window.deviceCommands.events : [])
  facts.events.set(event.id, event);

/** The name in a text to send, as the server parses it; '' for messages with "@" or "#". */
function commandName(text) {
  if (text.startsWith('@') || text.startsWith('#'))
    return '';
  const bracket = text.indexOf('(');
  return bracket < 0 ? text : text.slice(0, bracket);
}

/** Whether the server answers a text, as far as known. */
function isAnswered(text) {
  const name = commandName(text);
  const known = facts.byName.get(name);
  return Boolean(name) && !(known && known.reply.kind === 'none');
}

/** The argument text as the server parses it: after the first "(", without the last character. */
function argumentText(text) {
  const bracket = text.indexOf('(');
  return bracket < 0 ? '' : text.slice(bracket + 1, Math.max(bracket + 1, text.length - 1));
}

/** The facts about a command, by the name of an answer; undefined if there are none. */
function commandOf(name) {
  return facts.byName.get(facts.byFrame.get(name) || name);
}

/** Whether a result means failure; the "false" of a question doesn't. */
function isFailure(name, result) {
  const known = commandOf(name);
  return result === 'false' && !(known && known.reply.question);
}

/** @returns data URLs of the first few pictures in a text */
function picturesIn(text) {
  return (text.match(PICTURES) || []).slice(0, 4).map((base64) => {
    const type = base64.startsWith(FRAME_START) ? 'jpeg' : 'png';
    // Base64 that was cut off decodes in whole groups of four.
    return `data:image/${type};base64,${base64.slice(0, base64.length - (base64.length % 4))}`;
  });
}

/** The text with its pictures shortened. */
function withoutPictures(text) {
  return text.replace(PICTURES, (base64) => `${base64.slice(0, 16)}…`);
}

/** @returns a result as formatted JSON; '' if it is not a JSON object or list */
function formattedJson(text) {
  try {
    const value = JSON.parse(text);
    return value !== null && typeof value === 'object' ? JSON.stringify(value, null, 2) : '';
  } catch {
    return '';
  }
}

/** What may be wrong with an unanswered command. */
function noAnswerHint(name) {
  if (name !== name.trim())
    return t('hint.blank');
  if (facts.byName.has(name))
    return t('hint.busy');
  const meant = facts.commands.find((known) => known.name.toLowerCase() === name.toLowerCase());
  return meant ? t('hint.case', meant.name) : t('hint.unknown');
}

/** A warning of a likely mistake in a text to send; '' if there is none. */
function typingHint(text) {
  if (!commandName(text))
    return '';
  if (text.includes('(') && !text.endsWith(')'))
    return t('hint.bracket');
  if (facts.commands.length && text.trim() && !facts.byName.has(commandName(text)))
    return noAnswerHint(commandName(text));
  return '';
}

/** An unanswered command gets a hint after this time, or later if its facts say it takes longer. */
const LATE_SECONDS = 5;

/** Beyond this number of pending commands the oldest is given up. */
const WAITING_LIMIT = 500;

/** Finds the command that an answer belongs to. The protocol offers only the name for that. */
class Exchanges {
  constructor() {
    this.waiting = []; // { name, text, quiet, sent, late, timer, report }, oldest first
  }

  /**
   * @param text    what was sent
   * @param report  called with ('answered', result, milliseconds), ('late'), which 'answered' may still
   *              follow, or ('lost') if it is given up before it was late
   * @param quiet whether to keep the answer out of the log
   */
  sent(text, report, quiet = false) {
    const name = commandName(text);
    const known = facts.byName.get(name);
    const exchange = { name, text, quiet, sent: performance.now(), late: false, timer: 0, report };
    exchange.timer = setTimeout(() => {
      exchange.late = true;
      report('late');
    }, 1000 * (known && known.reply.timeout || LATE_SECONDS));
    this.waiting.push(exchange);
    if (this.waiting.length > WAITING_LIMIT)
      this.giveUp(this.waiting.splice(0, 1));
  }

  /** @returns { milliseconds, quiet, text } of the command; null if none waits for this name */
  answered(answerName, result) {
    const name = facts.byFrame.get(answerName) || answerName;
    const ofName = (exchange) => exchange.name === answerName || exchange.name === name;
    // A command whose answer went to another page must not take the answers to later ones.
    const exchange = this.waiting.find((each) => ofName(each) && !each.late)
        || this.waiting.find(ofName);
    if (!exchange)
      return null;
    const milliseconds = performance.now() - exchange.sent;
    clearTimeout(exchange.timer);
    this.waiting.splice(this.waiting.indexOf(exchange), 1);
    exchange.report('answered', result, milliseconds);
    return { milliseconds, quiet: exchange.quiet, text: exchange.text };
  }

  /** Gives up all pending commands after the connection is lost. */
  giveUpAll() {
    this.giveUp(this.waiting.splice(0));
  }

  giveUp(given) {
    for (const exchange of given) {
      clearTimeout(exchange.timer);
      if (!exchange.late)
        exchange.report('lost');
    }
  }
}
