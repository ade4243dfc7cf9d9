// SPDX-License-Identifier: MIT
//
// Runs a script and shows what became of its lines; scriptlanguage.js reads it.

'use strict';

/** Height of a line of the script, as in the style sheet. */
const LINE_PIXELS = 20;

/** A script without waits still leaves the page its turn, after this long. */
const TURN_MILLISECONDS = 40;

/** Results kept for the table; of a longer run, the first ones. */
const RESULT_LIMIT = 50000;

/** Characters kept of each result. */
const RESULT_CHARACTERS = 500;

/** Events that wait for a "wait for" line, of each name. */
const EVENT_LIMIT = 100;

const MARKS = { now: '▸', good: '✓', bad: '✗', done: '·' };

/** Yields to the browser, which handles pending events. */
function pageTurn() {
  return new Promise((resolve) => {
    const { port1, port2 } = new MessageChannel(); // unlike timers, not slowed down in a hidden page
    port1.onmessage = () => resolve();
    port2.postMessage(null);
  });
}

class Script {
  /**
   * @param view  elements: text, marks, results, state, run, step, stop, halt, table
   * @param ask   sends a text, resolves to { outcome, result, milliseconds }
   */
  constructor(view, ask) {
    this.view = view;
    this.ask = ask;
    this.running = false;
    this.halted = false; // stop() was called
    this.endWait = () => {};
    this.redraw = new Redraw(() => {
      this.drawRows();
      this.drawState();
    });
    this.saying = () => ''; // the state, in the page's language
    this.saveTimer = 0;
    view.text.value = settings.get('script', '');
    view.halt.checked = settings.get('script.halt', false);
    view.halt.addEventListener('change', () => settings.set('script.halt', view.halt.checked));
    view.text.addEventListener('input', () => this.edited());
    view.text.addEventListener('scroll', () => this.draw());
    view.run.addEventListener('click', () => this.run());
    view.step.addEventListener('click', () => this.step());
    view.stop.addEventListener('click', () => this.stop());
    window.addEventListener('pagehide', () => this.save());
    new ResizeObserver(() => this.draw()).observe(view.text);
    this.parse();
  }

  /** Replaces the text, which Ctrl+Z brings back. */
  setText(text) {
    const whole = text.replace(/\r\n?/g, '\n');
    this.view.text.focus();
    this.view.text.select();
    if (whole.length > 5000 || !document.execCommand('insertText', false, whole)) // that takes seconds for long texts
      this.view.text.value = whole;
    this.view.text.setSelectionRange(0, 0);
    this.view.text.scrollTop = 0;
    this.edited();
  }

  edited() {
    clearTimeout(this.saveTimer);
    this.saveTimer = setTimeout(() => this.save(), 500);
    this.parse();
  }

  save() {
    clearTimeout(this.saveTimer);
    settings.set('script', this.view.text.value);
  }

  parse() {
    this.lineCount = this.view.text.value.split('\n').length;
    this.steps = parseScript(this.view.text.value);
    this.reset();
    this.saying = () => '';
    this.draw();
  }

  /** Forgets the last run. */
  reset() {
    this.next = 0; // place of the step to run next
    this.loops = new Map(); // place of a loop to { values, at }
    this.variables = new Variables();
    this.result = ''; // the latest
    this.events = new Map(); // name to what was pushed and not waited for yet
    this.outcomes = new Map(); // line to { mark, text, times, bad }
    this.took = 0;
    this.startedAt = new Date();
    this.records = []; // { line, text, mark, result, milliseconds, time }
    this.counts = { good: 0, bad: 0 };
  }

  /** Runs all lines from the first. @param halting  whether it may end at the first failure */
  async run(halting = this.view.halt.checked) {
    if (this.running)
      return;
    this.halting = halting;
    this.reset();
    const faults = this.steps.filter((step) => step.kind === 'fault');
    faults.forEach((step) => this.finish(step, 'bad', t(step.fault), 0));
    if (faults.length) {
      this.saying = () => t('script.faults', faults.length);
      this.redraw.now();
      return;
    }
    const start = performance.now();
    await this.work(async () => {
      let turn = performance.now();
      while (this.next < this.steps.length && !this.halted && await this.runStep() !== 'stop') {
        if (performance.now() - turn > TURN_MILLISECONDS) {
          await pageTurn();
          turn = performance.now();
        }
      }
    });
    this.took = performance.now() - start;
    const stopped = this.next < this.steps.length ? this.steps[this.next].line + 1 : 0;
    const { good, bad } = this.counts;
    this.saying = () => t('script.done', good, bad, duration(this.took))
      + (stopped ? ` · ${t('script.stopped', stopped)}` : '');
    this.next = 0;
    this.redraw.now();
  }

  /** Runs only the next line; starts over after the last one. */
  async step() {
    if (this.running)
      return;
    this.halting = false;
    if (this.next === 0)
      this.reset();
    await this.work(async () => {
      if (this.next < this.steps.length && await this.runStep() === 'stop')
        this.next += 1;
    });
    if (this.next >= this.steps.length)
      this.next = 0;
    this.draw();
  }

  stop() {
    this.halted = true;
    this.endWait();
  }

  /** What the server has pushed: a frame, a text without a frame, or an event by its name. */
  heard(name, result) {
    if (!this.running)
      return;
    const waiting = this.awaited === name;
    if (name !== 'frame' || waiting)
      this.events.set(name, [...(this.events.get(name) || []), result].slice(-EVENT_LIMIT));
    if (waiting)
      this.endWait();
  }

  async work(task) {
    this.running = true;
    this.halted = false;
    this.view.text.readOnly = true;
    this.draw();
    Redraw.busy = true;
    await task();
    Redraw.busy = false;
    this.running = false;
    this.view.text.readOnly = false;
    this.draw();
  }

  // ---- One line ----

  /** Runs the next step and moves on. @returns 'stop' if the script can't or mustn't continue */
  async runStep() {
    const step = this.steps[this.next];
    this.setOutcome(step, 'now', '');
    let failed = '';
    try {
      failed = await this[`run_${step.kind}`](step);
    } catch (error) {
      this.finish(step, 'bad', error.message, 0); // a variable or a pattern
      failed = 'fault';
    }
    if (this.halted || ['lost', 'offline', 'fault'].includes(failed) || (failed && this.halting))
      return 'stop';
    this.next += 1;
    return 'go';
  }

  async run_command(step) {
    const text = this.variables.filled(step.text);
    const answer = await this.interruptible(this.ask(text));
    if (!answer) {
      this.setOutcome(step, 'bad', '');
      return 'stop';
    }
    const { outcome, result, milliseconds } = answer;
    if (outcome !== 'answered') {
      this.finish(step, outcome === 'sent' ? 'good' : 'bad', t({ sent: 'script.sent', late: 'script.noanswer',
        lost: 'script.lost', offline: 'script.offline' }[outcome]), 0, text);
      return outcome === 'sent' ? '' : outcome;
    }
    this.result = result;
    if (step.keep)
      this.variables.set(step.keep, result);
    this.variables.set('result', result);
    const failed = !step.judged && isFailure(commandName(text), result);
    this.finish(step, failed ? 'bad' : 'good', result, milliseconds, text);
    return failed ? 'failed' : '';
  }

  async run_fault(step) {
    throw new Error(t(step.fault));
  }

  async run_wait(step) {
    await this.interruptible(new Promise((over) => setTimeout(over, step.milliseconds)));
    this.setOutcome(step, this.halted ? 'bad' : 'done', '');
  }

  async run_event(step) {
    const start = performance.now();
    if (!(this.events.get(step.name) || []).length) {
      this.awaited = step.name;
      await this.interruptible(new Promise((over) => setTimeout(over, 1000 * step.seconds)));
      this.awaited = '';
    }
    const [result, ...others] = this.events.get(step.name) || [];
    this.events.set(step.name, others);
    const came = result !== undefined;
    if (came) {
      this.result = result;
      this.variables.set('result', result);
    }
    this.finish(step, came ? 'good' : 'bad', came ? result : t('script.noevent'), performance.now() - start);
    return came ? '' : 'failed';
  }

  async run_expect(step) {
    const value = this.variables.filled(step.value);
    const good = isAsExpected(this.result, value) !== step.not;
    this.finish(step, good ? 'good' : 'bad', good ? '' : t('script.unexpected', shorten(this.result, 60) || t('result.empty')), 0);
    return good ? '' : 'failed';
  }

  async run_set(step) {
    const value = this.variables.filled(step.value);
    this.variables.set(step.name, value);
    this.setOutcome(step, 'done', shorten(value, 60));
  }

  async run_repeat(step) {
    const times = Number(this.variables.filled(step.times));
    this.enter(step, 'n', (at) => (at < times ? at + 1 : undefined));
  }

  async run_for(step) {
    const values = this.variables.filled(step.list).split(/\s*[,|]\s*/);
    this.enter(step, step.name, (at) => values[at]);
  }

  /** @param valueAt  the value of a round; undefined after the last */
  enter(step, name, valueAt) {
    const round = this.loops.get(this.next) || { at: 0, valueAt };
    const value = round.valueAt(round.at);
    round.at += 1;
    this.setOutcome(step, value === undefined ? 'done' : 'now', value === undefined ? '' : `${name} = ${value}`);
    if (value === undefined) {
      this.loops.delete(this.next);
      this.next = step.end; // and past it
      return;
    }
    this.loops.set(this.next, round);
    this.variables.set(name, value);
  }

  async run_end(step) {
    this.setOutcome(step, 'done', '');
    this.next = step.loop - 1; // runStep() goes on to the loop
  }

  /** @returns what `promise` resolves to, or undefined if stop() is called or an awaited event comes first */
  interruptible(promise) {
    return Promise.race([promise, new Promise((over) => { this.endWait = over; })]);
  }

  /** Records the end of a step that counts as a test. */
  finish(step, mark, result, milliseconds, text = step.text) {
    this.counts[mark] += 1;
    if (this.records.length < RESULT_LIMIT)
      this.records.push({ line: step.line + 1, text: shorten(text, RESULT_CHARACTERS), mark,
        result: shorten(result, RESULT_CHARACTERS), milliseconds, time: new Date() });
    const shown = shorten(result, 60) || (step.kind === 'command' ? t('result.empty') : '');
    this.setOutcome(step, mark, [shown, milliseconds && duration(milliseconds)].filter(Boolean).join(' · '));
  }

  /** In a loop, a line that has failed once stays marked as failed. */
  setOutcome(step, mark, text) {
    const before = this.outcomes.get(step.line);
    const bad = mark === 'bad' || Boolean(before && before.bad);
    this.outcomes.set(step.line, { mark: bad && mark === 'good' ? 'bad' : mark, text, bad });
    this.draw();
  }

  // ---- Showing ----

  /** Shows line `line`, counted from 1. */
  goTo(line) {
    const box = this.view.text;
    const start = box.value.split('\n').slice(0, line - 1).join('\n').length + (line > 1 ? 1 : 0);
    box.focus({ preventScroll: true });
    box.setSelectionRange(start, start);
    box.scrollTop = (line - 1) * LINE_PIXELS - box.clientHeight / 2;
  }

  draw() {
    this.redraw.soon();
  }

  /** Only lines in view get a row. */
  drawRows() {
    const { text, marks, results } = this.view;
    const first = Math.floor(text.scrollTop / LINE_PIXELS);
    const last = Math.min(first + Math.ceil(text.clientHeight / LINE_PIXELS) + 1, this.lineCount);
    const nextLine = !this.running && this.next > 0 && this.steps[this.next] ? this.steps[this.next].line : -1;
    removeChildren(marks);
    removeChildren(results);
    for (let line = first; line < last; line += 1) {
      const { mark, text: result } = this.outcomes.get(line) || { mark: '', text: '' };
      const row = element('li', mark);
      row.append(element('span', 'number', String(line + 1)), element('span', 'mark', MARKS[mark] || ''));
      row.classList.toggle('next', line === nextLine);
      marks.append(row);
      const cell = element('li', mark, result);
      cell.title = result;
      results.append(cell);
    }
    for (const list of [marks, results].filter((each) => each.firstChild))
      list.firstChild.style.marginTop = `${-(text.scrollTop % LINE_PIXELS)}px`;
  }

  drawState() {
    const { run, step, stop, table, state } = this.view;
    run.disabled = this.running;
    step.disabled = this.running;
    stop.disabled = !this.running;
    table.disabled = !this.records.length;
    const now = this.running && this.steps[this.next];
    const said = now ? t('script.running', now.line + 1, this.lineCount) : this.saying();
    if (state.textContent !== said)
      state.textContent = said;
  }
}
