// SPDX-License-Identifier: MIT
//
// The script: commands that run one after another, each after the answer to the previous one.

'use strict';

const SCRIPT_EXAMPLE = `# Start, take a picture, stop
getVersion()
bStartPlay()
wait 500
sGetBase64()
bSaveJPG(/tmp,scan1)
bFileIsExist(/tmp/scan1.jpg)
bStopPlay()
`;

/** @returns {{kind, text, milliseconds}|null} the parsed line; null for blank lines and comments */
function parseLine(line) {
  const text = line.trim();
  if (!text || text.startsWith('#'))
    return null;
  const wait = /^wait\s+(\d{1,7})$/i.exec(text);
  if (wait)
    return { kind: 'wait', text, milliseconds: Number(wait[1]) };
  return { kind: 'command', text };
}

class Script {
  /**
   * @param view  elements: text, marks, results, state, run, step, stop, halt
   * @param ask   sends a text, resolves to { outcome, result, milliseconds }
   */
  constructor(view, ask) {
    this.view = view;
    this.ask = ask;
    this.outcomes = new Map(); // line index to { mark, text }
    this.next = 0; // line to run next
    this.running = false;
    this.halted = false; // stop() was called
    this.endWait = null;
    view.text.value = settings.get('script', '');
    view.halt.checked = settings.get('script.halt', false);
    view.halt.addEventListener('change', () => settings.set('script.halt', view.halt.checked));
    view.text.addEventListener('input', () => this.edited());
    view.text.addEventListener('scroll', () => this.scroll());
    view.run.addEventListener('click', () => this.run());
    view.step.addEventListener('click', () => this.step());
    view.stop.addEventListener('click', () => this.stop());
    this.draw();
  }

  lines() {
    return this.view.text.value.split('\n');
  }

  setText(text) {
    this.view.text.value = text.replace(/\r\n?/g, '\n');
    this.edited();
  }

  edited() {
    settings.set('script', this.view.text.value);
    this.outcomes.clear();
    this.next = 0;
    this.view.state.textContent = '';
    this.draw();
  }

  /** Runs all lines from the first. */
  async run() {
    if (this.running)
      return;
    this.outcomes.clear();
    this.next = 0;
    const start = performance.now();
    await this.work(async () => {
      while (!this.halted && this.skip() && await this.runLine() !== 'stop')
        this.next += 1;
    });
    const marks = [...this.outcomes.values()].map((each) => each.mark);
    const many = (mark) => marks.filter((each) => each === mark).length;
    const summary = t('script.done', many('good'), many('bad'), duration(performance.now() - start));
    const stopped = this.skip() ? ` · ${t('script.stopped', this.next + 1)}` : '';
    this.view.state.textContent = summary + stopped;
    this.next = 0;
    this.draw();
  }

  /** Runs only the next line; starts over after the last one. */
  async step() {
    if (this.running)
      return;
    if (this.next === 0)
      this.outcomes.clear();
    await this.work(async () => {
      if (this.skip())
        await this.runLine();
      this.next += 1;
    });
    if (!this.skip())
      this.next = 0;
    this.draw();
  }

  stop() {
    this.halted = true;
    if (this.endWait)
      this.endWait();
  }

  async work(task) {
    this.running = true;
    this.halted = false;
    this.view.text.readOnly = true;
    this.draw();
    await task();
    this.running = false;
    this.view.text.readOnly = false;
    this.draw();
  }

  /** Moves on to the next line to run. @returns whether there is one */
  skip() {
    const lines = this.lines();
    while (this.next < lines.length && !parseLine(lines[this.next]))
      this.next += 1;
    return this.next < lines.length;
  }

  /** @returns 'stop' if the script can't or mustn't continue */
  async runLine() {
    const index = this.next;
    const line = parseLine(this.lines()[index]);
    this.setOutcome(index, 'now', '');
    this.view.state.textContent = t('script.running', index + 1, this.lines().length);
    if (line.kind === 'wait') {
      await this.interruptible(new Promise((over) => setTimeout(over, line.milliseconds)));
      this.setOutcome(index, this.halted ? 'bad' : 'done', '');
      return this.halted ? 'stop' : 'go';
    }
    const answer = await this.interruptible(this.ask(line.text));
    if (!answer) {
      this.setOutcome(index, 'bad', '');
      return 'stop';
    }
    const { outcome, result, milliseconds } = answer;
    const answered = outcome === 'answered';
    const failed = answered ? isFailure(commandName(line.text), result) : outcome !== 'sent';
    this.setOutcome(index, failed ? 'bad' : 'good', answered
      ? `${shorten(result, 60) || t('result.empty')} · ${duration(milliseconds)}`
      : t({ sent: 'script.sent', late: 'script.noanswer', lost: 'script.lost',
        offline: 'script.offline' }[outcome]));
    return ['lost', 'offline'].includes(outcome) || (failed && this.view.halt.checked) ? 'stop' : 'go';
  }

  /** @returns what `promise` resolves to, or undefined if stop() is called first */
  interruptible(promise) {
    return Promise.race([promise, new Promise((over) => { this.endWait = over; })]);
  }

  setOutcome(index, mark, text) {
    this.outcomes.set(index, { mark, text });
    this.draw();
  }

  draw() {
    const { marks, results } = this.view;
    const signs = { now: '▸', good: '✓', bad: '✗', done: '·' };
    removeChildren(marks);
    removeChildren(results);
    this.lines().forEach((line, index) => {
      const { mark, text } = this.outcomes.get(index) || { mark: '', text: '' };
      const row = element('li', mark);
      row.append(element('span', 'number', String(index + 1)), element('span', 'mark', signs[mark] || ''));
      row.classList.toggle('next', !this.running && this.next > 0 && index === this.next);
      marks.append(row);
      results.append(element('li', mark, text));
    });
    this.view.run.disabled = this.running;
    this.view.step.disabled = this.running;
    this.view.stop.disabled = !this.running;
    this.scroll();
  }

  scroll() {
    this.view.marks.scrollTop = this.view.text.scrollTop;
    this.view.results.scrollTop = this.view.text.scrollTop;
  }
}
