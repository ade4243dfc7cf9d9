// SPDX-License-Identifier: MIT
//
// The state of the device and the server. Only commands that change nothing and answer at once are
// sent automatically; those that may wait for a card reader have a button.

'use strict';

/** After this many unanswered commands the server is considered busy. */
const STATE_PATIENCE = 2;

const bool = (text) => ({ true: t('on'), false: t('off') }[text] || text);

/** Rows: key of the label, commands, and how to show their results; wide ones take the whole line. */
const STATE_ROWS = [
  { label: 'device.camera', commands: ['GetDeviceStatus()'], help: 'device.camera.help',
    say: ([status], live) => camera(status.split('|')[0], live) },
  { label: 'device.module', commands: ['GetDeviceStatus()'],
    say: ([status]) => attached(status.split('|')[1] || '') },
  { label: 'device.version', commands: ['getVersion()'] },
  { label: 'device.platform', commands: ['version()'] },
  { label: 'device.resolution', commands: ['iGetResolutionX(1)', 'iGetResolutionY(1)'],
    say: ([x, y]) => `${x} × ${y}` },
  { label: 'device.frames', commands: ['bGetPreviewEnable()'], say: ([on]) => bool(on) },
  { label: 'device.quality', commands: ['sGetImageQuality()'] },
  { label: 'device.dpi', commands: ['vGetDPI()'], say: ([dpi]) => dpi.replace(/[()]/g, '').replace(',', ' × ') },
  { label: 'device.turn', commands: ['iGetRotate()', 'iGetFlip()'],
    say: ([angle, flip]) => `${angle}°, ${flip}` },
  { label: 'device.recording', commands: ['isRecording()'],
    say: ([on]) => ({ true: t('yes'), false: t('no') }[on] || on) },
  { label: 'device.book', commands: ['igetBookScannerMode()'] },
  { label: 'device.temp', commands: ['sGetTempPath()'] },
  { label: 'device.serial', commands: ['sGetSerialNum()'] },
  { label: 'device.connection', commands: [],
    say: () => (connection.state === 'open' ? clock(new Date(connection.openedAt)).slice(0, 8) : '–') },
  { label: 'device.library', commands: ['sServerVersion()'], wide: true },
  { label: 'device.ids', commands: ['sGetDevicesId()'], wide: true },
  { label: 'device.usb', commands: ['sEnumUSBDevice()'], wide: true },
  { label: 'device.sizes', commands: ['getAllResolutions(1)'], wide: true, say: ([json]) => sizes(json) },
  { label: 'device.sam', commands: ['bGetSAMStatus()', 'GetSAMID()'], wide: true, slow: true,
    say: ([ready, id]) => `${{ true: t('device.sam.true'), false: t('device.sam.false') }[ready] || ready}${id ? `, ${id}` : ''}` },
];

function attached(text) {
  if (text.endsWith('未连接'))
    return { text: t('device.detached'), lamp: 'off' };
  return text.endsWith('已连接') ? { text: t('device.attached'), lamp: 'on' } : text;
}

/** A camera that the server doesn't know by its USB ID may deliver pictures all the same. */
function camera(text, live) {
  const state = attached(text);
  return live && state.lamp === 'off' ? { text: t('device.other'), lamp: 'on' } : state;
}

function sizes(json) {
  try {
    return JSON.parse(json).map((size) => `${size.width}×${size.height}`).join(', ');
  } catch {
    return json; // shown as received
  }
}

class DeviceState {
  /**
   * @param ask   sends a text, resolves to { outcome, result, milliseconds }
   * @param live  returns whether the preview runs
   * @param done  called after reading all rows with the number of commands, the milliseconds and
   *              the unanswered commands
   */
  constructor(view, ask, live, done) {
    this.view = view;
    this.ask = ask;
    this.live = live;
    this.done = done;
    this.results = new Map(); // command text to its result; null: no answer
    this.readAt = null;
    this.reading = false;
    this.draw();
  }

  /** Sends one command at a time; stops early if the server doesn't answer. */
  async readAll() {
    const rows = STATE_ROWS.filter((row) => !row.slow);
    const start = performance.now();
    const { asked, silent } = await this.read([...new Set([].concat(...rows.map((row) => row.commands)))]);
    if (asked)
      this.done(asked, performance.now() - start, silent);
  }

  async read(commands) {
    if (this.reading)
      return { asked: 0, silent: [] };
    this.reading = true;
    this.draw();
    const silent = [];
    let asked = 0;
    for (const command of commands) {
      asked += 1;
      const { outcome, result } = await this.ask(command);
      this.results.set(command, outcome === 'answered' ? result : null);
      if (outcome !== 'answered')
        silent.push(command);
      if (silent.length === STATE_PATIENCE || ['lost', 'offline'].includes(outcome))
        break;
    }
    this.reading = false;
    this.readAt = new Date();
    this.draw();
    return { asked, silent };
  }

  draw() {
    removeChildren(this.view.list);
    for (const row of STATE_ROWS)
      this.view.list.append(this.rowOf(row));
    this.view.read.disabled = this.reading;
    // The portable library says so itself.
    this.view.simulation.hidden = !String(this.results.get('sServerVersion()')).includes('(simulation)');
    this.view.time.textContent = this.reading ? t('device.reading')
      : this.readAt ? clock(this.readAt).slice(0, 8) : t('device.never');
  }

  rowOf(row) {
    const pair = element('div', row.wide ? 'fact wide' : 'fact');
    const value = element('dd');
    pair.append(element('dt', '', t(row.label)), value);
    const results = row.commands.map((command) => this.results.get(command));
    pair.title = row.commands.join(', ') + (row.help ? `\n${t(row.help)}` : '');
    if (results.includes(null)) {
      value.append(element('span', 'bad', t('status.noanswer')));
    } else if (!results.includes(undefined)) {
      const reading = row.say ? row.say(results, this.live()) : results[0];
      const text = reading.text || String(reading);
      if (reading.lamp)
        value.append(element('span', `lamp ${reading.lamp}`));
      value.append(shorten(text, 300) || '–');
      pair.title += `\n${shorten(results.join(' '), 1000)}`;
    } else if (!row.slow) {
      value.append(element('span', 'dim', '–'));
    }
    if (row.slow) {
      const ask = button('small', t('device.sam.read'), () => this.read(row.commands));
      ask.title = t('device.sam.help');
      ask.disabled = this.reading;
      value.append(ask);
    }
    return pair;
  }
}
