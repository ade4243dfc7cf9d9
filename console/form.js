// SPDX-License-Identifier: MIT
//
// A command's facts and argument fields, and the text to send: composed from the fields, and
// editable.

'use strict';

const HISTORY_LIMIT = 100;

class CommandForm {
  /** @param sent  called with the text; returns whether it could be sent */
  constructor(tree, sent) {
    this.tree = tree;
    this.send = sent;
    this.command = null;
    this.inputs = []; // of the arguments, in order
    this.warnings = []; // their lines for what is wrong
    this.tried = ''; // name of the command that was sent from here
    this.history = session.get('history', []);
    this.place = this.history.length; // history.length: the text being typed
    this.typed = '';
    this.raw = byId('command');
    byId('command-line').addEventListener('submit', (event) => {
      event.preventDefault();
      this.submit();
    });
    this.raw.addEventListener('input', () => this.edited());
    this.raw.addEventListener('keydown', (event) => this.key(event));
    byId('examples').addEventListener('click', () => this.fillExamples());
    byId('favourite').addEventListener('click', () => {
      if (this.command) {
        this.tree.toggleFavourite(this.command.name);
        this.showFavourite();
      }
    });
  }

  /** Shows a command with empty fields. @param focus  whether to move the focus here */
  choose(command, focus) {
    this.command = command;
    this.show();
    this.compose();
    settings.set('command', command.name);
    this.tree.mark(command.name);
    if (focus)
      (this.inputs[0] || this.raw).focus();
  }

  /** Puts a text to send into the line, and shows its command above it. */
  bringBack(text) {
    const command = facts.byName.get(commandName(text));
    if (command) {
      this.command = command;
      this.show();
      this.tree.mark(command.name);
    }
    this.setRaw(text);
    this.edited();
    this.raw.focus();
  }

  /** Shows everything in the current language; keeps what was typed. */
  refresh() {
    const text = this.raw.value;
    if (this.command)
      this.show();
    this.setRaw(text);
    this.edited();
  }

  submit() {
    const text = this.raw.value;
    if (text === '')
      return;
    if (!this.send(text)) {
      this.showHint(t('hint.offline'));
      return;
    }
    this.tried = this.command ? this.command.name : '';
    if (this.history[this.history.length - 1] !== text && text.length < 10000)
      this.history = [...this.history, text].slice(-HISTORY_LIMIT);
    this.place = this.history.length;
    session.set('history', this.history);
    this.check();
  }

  // ---- Facts ----

  show() {
    const { command } = this;
    setText('command-name', command.name);
    setText('command-summary', said(command.summary) + (command.note ? ` ${said(command.note)}` : ''));
    this.showFavourite();
    this.showBadges();
    this.showReply();
    removeChildren(byId('fields'));
    this.warnings = command.arguments.map((argument, index) => {
      const line = element('p', 'field-warning');
      line.id = `warning-${index}`;
      line.setAttribute('role', 'status');
      return line;
    });
    this.inputs = command.arguments.map((argument, index) => {
      const input = this.inputOf(argument, index);
      byId('fields').append(this.fieldOf(argument, input, index));
      return input;
    });
    byId('examples').hidden = !command.arguments.length;
  }

  showFavourite() {
    const is = this.tree.isFavourite(this.command.name);
    const star = byId('favourite');
    star.textContent = is ? '★' : '☆';
    star.title = t(is ? 'favourite.remove' : 'favourite.add');
    star.setAttribute('aria-label', star.title);
    star.setAttribute('aria-pressed', String(is));
  }

  showBadges() {
    const { reply, pushes } = this.command;
    const badges = [
      reply.kind === 'none' && t('badge.none'),
      reply.always && t('badge.always', reply.example),
      reply.question && t('badge.question'),
      reply.late && t('badge.late'),
      reply.to === 'all' && t('badge.all'),
      pushes && pushes.length && t('badge.pushes', pushes.join(', ')),
    ].filter(Boolean);
    removeChildren(byId('command-badges'));
    for (const text of badges)
      byId('command-badges').append(element('span', 'badge', text));
  }

  showReply() {
    const { name, reply, tooFew } = this.command;
    const line = byId('command-reply');
    removeChildren(line);
    line.append(`${t('reply')}: ${t(`reply.${reply.kind}`)}`);
    if (reply.example !== undefined && reply.kind !== 'none')
      line.append(`, ${t('reply.example')} `,
                  element('code', '', shorten(`Begin${name}${reply.example}End${name}`, 90)));
    if (tooFew !== undefined)
      line.append(` · ${t('reply.tooFew', tooFew || t('result.empty'))}`);
  }

  // ---- Fields ----

  fieldOf(argument, input, index) {
    const field = element('div', 'field');
    const label = element('label', '', argument.name);
    label.htmlFor = input.id;
    const kind = element('span', 'dim', this.kindOf(argument));
    const about = element('p', 'about', said(argument.about));
    about.id = `about-${index}`;
    input.setAttribute('aria-describedby', `${this.warnings[index].id} ${about.id}`);
    const line = element('div', 'field-line');
    line.append(input);
    if (argument.type === 'base64')
      line.append(fileButton((base64) => this.setField(index, base64)));
    const head = element('div', 'field-head');
    head.append(label, ' ', kind);
    head.title = kind.textContent;
    field.append(head, line, this.warnings[index], about);
    return field;
  }

  kindOf(argument) {
    const kind = [t(`type.${argument.type}`)];
    if (argument.optional)
      kind.push(argument.default === undefined ? t('argument.optional')
        : t('argument.default', argument.default));
    if (argument.repeat)
      kind.push(t('argument.more'));
    return kind.join(', ');
  }

  inputOf(argument, index) {
    const choices = argument.choices || (argument.type === 'boolean' && [
      { value: '1', en: TEXTS.yes[0], zh: TEXTS.yes[1] },
      { value: '0', en: TEXTS.no[0], zh: TEXTS.no[1] }]);
    const input = element(choices ? 'select' : 'input');
    input.id = `argument-${index}`;
    if (choices) {
      input.append(new Option('', ''));
      for (const choice of choices)
        input.append(new Option(`${choice.value} · ${said(choice)}`, choice.value));
    } else {
      input.type = 'text'; // the server parses numbers leniently; that can be tried, too
      input.inputMode = argument.type === 'integer' ? 'numeric' : 'text';
      input.placeholder = shorten(argument.example || '', 60);
      input.spellcheck = false;
      input.autocomplete = 'off';
    }
    input.addEventListener('input', () => this.compose());
    input.addEventListener('keydown', (event) => {
      if (event.key === 'Enter' && !event.isComposing && !hasModifier(event)) {
        event.preventDefault();
        this.submit();
      }
    });
    return input;
  }

  setField(index, value) {
    this.inputs[index].value = value;
    this.compose();
  }

  /** Fills the empty fields. */
  fillExamples() {
    this.inputs.forEach((input, index) => {
      if (input.value === '')
        input.value = this.command.arguments[index].example || '';
    });
    this.compose();
    this.raw.focus();
  }

  // ---- The text ----

  /** Composes the text from the fields, without empty optional ones at the end. */
  compose() {
    const values = this.inputs.map((input) => input.value);
    while (values.length && values[values.length - 1] === ''
        && (this.command.arguments[values.length - 1].optional || values.every((each) => each === '')))
      values.pop();
    this.setRaw(`${this.command.name}(${values.join(',')})`);
    this.check();
  }

  /** Says beside each field what is likely wrong with it, and below the text what is with that. */
  check() {
    const text = this.raw.value;
    const known = facts.byName.get(commandName(text)) === this.command && this.command;
    const started = this.inputs.some((input) => input.value !== '') || this.tried === commandName(text);
    this.inputs.forEach((input, index) => {
      const warning = known ? argumentWarning(known.arguments[index], input.value, started) : '';
      this.warnings[index].textContent = warning;
      input.setAttribute('aria-invalid', String(Boolean(warning)));
    });
    this.showHint(typingHint(text) || (known && started && countWarning(known, text)) || '');
  }

  setRaw(text) {
    this.raw.value = text;
  }

  /** Fills the fields from the text, and warns of likely mistakes. */
  edited() {
    const text = this.raw.value;
    const command = facts.byName.get(commandName(text));
    if (command && command !== this.command) {
      this.command = command;
      this.show();
      this.tree.mark(command.name);
    }
    if (command)
      this.parse(argumentText(text));
    this.check();
  }

  parse(text) {
    const last = this.inputs.length - 1;
    const parts = this.command.split === 'comma' ? text.split(',') : [text];
    this.inputs.forEach((input, index) => {
      const repeats = index === last && this.command.arguments[index].repeat;
      const value = repeats ? parts.slice(index).join(',') : parts[index] || '';
      input.value = value;
      if (value && input.value !== value) { // not one of the choices
        input.append(new Option(t('argument.choose', value), value));
        input.value = value;
      }
    });
  }

  showHint(warning) {
    setText('command-hint', warning || t('raw.help'));
    byId('command-hint').classList.toggle('warning', Boolean(warning));
  }

  key(event) {
    if (event.isComposing || hasModifier(event))
      return;
    if (event.key === 'Enter') {
      event.preventDefault();
      this.submit();
      return;
    }
    const by = { ArrowUp: -1, ArrowDown: 1 }[event.key];
    if (!by || this.raw.value.includes('\n'))
      return; // within a text of several lines the keys move in it
    event.preventDefault();
    if (this.place === this.history.length)
      this.typed = this.raw.value;
    this.place = Math.min(Math.max(this.place + by, 0), this.history.length);
    this.setRaw(this.place === this.history.length ? this.typed : this.history[this.place]);
    this.edited();
  }
}

/** A button that hands a chosen file over as base64. */
function fileButton(chosen) {
  return button('file', t('argument.file'), () => {
    const picker = element('input');
    picker.type = 'file';
    picker.addEventListener('change', async () => {
      chosen(base64Of(await new Response(picker.files[0]).arrayBuffer()));
    });
    picker.click();
  });
}
