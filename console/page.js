// SPDX-License-Identifier: MIT
//
// Connects the parts to the elements of index.html.
//
// All are plain scripts, since modules don't load from file://, without syntax or functions newer
// than Chromium 80.

'use strict';

const exchanges = new Exchanges();

// ---- Connection ---------------------------------------------------------------------------------

const connection = new Connection({
  changed(note, ...values) {
    if (connection.state !== 'open')
      exchanges.giveUpAll();
    if (note)
      log.add('note', { say: () => t(note, ...values),
        error: !['note.connected', 'note.disconnected'].includes(note) });
    showConnection();
    if (connection.state === 'open' && byId('device-auto').checked)
      deviceState.readAll();
  },
  received,
  picture: (client) => picture.follow(client),
});

function showConnection() {
  showConnectionState();
  byId('trouble').hidden = connection.state === 'open' || !connection.unreachable;
  setText('trouble-address', connection.address);
  setText('trouble-reason', connection.reason);
  byId('trouble-reason').hidden = !connection.reason;
  deviceState.draw();
  showPicture();
}

function showConnectionState() {
  const { state, unreachable } = connection;
  const texts = {
    closed: 'state.closed',
    connecting: 'state.connecting',
    open: 'state.open',
    waiting: unreachable ? 'state.unreachable' : 'state.lost',
  };
  byId('state').className = `state ${state}`;
  setText('state-text', t(texts[state]));
  setText('connect', t({
    closed: 'connect', connecting: 'connect.cancel', open: 'connect.end', waiting: 'connect.stop',
  }[state]));
  byId('device').classList.toggle('stale', state !== 'open');
  for (const id of ['start', 'stop', 'frame-size', 'device-read'])
    byId(id).disabled = state !== 'open';
  const seconds = Math.max(0, Math.ceil((connection.nextTry - Date.now()) / 1000));
  setText('state-detail', state === 'waiting' ? t('state.next', seconds) : '');
}

function openTyped() {
  if (!window.DeviceClient) {
    log.add('note', { say: () => t('client.missing'), error: true });
    return;
  }
  const field = byId('address');
  const address = completeAddress(field.value);
  field.setCustomValidity(address ? '' : t('address.bad', DEFAULT_ADDRESS));
  if (!field.reportValidity())
    return;
  field.value = address;
  connection.open(address);
}

byId('server').addEventListener('submit', (event) => {
  event.preventDefault();
  openTyped();
});
byId('address').addEventListener('input', () => byId('address').setCustomValidity(''));
byId('connect').addEventListener('click', () => {
  if (connection.state === 'closed')
    openTyped();
  else
    connection.close();
});
byId('try-now').addEventListener('click', openTyped);

// ---- Messages -----------------------------------------------------------------------------------

/**
 * Sends a text and logs it with its outcome.
 * @param report  called as by Exchanges, or with ('sent') if no answer is expected
 * @returns whether it was sent
 */
function send(text, report = () => {}) {
  if (!connection.send(text))
    return false;
  const name = commandName(text);
  const hint = typingHint(text) && (() => typingHint(text));
  const answered = isAnswered(text);
  const entry = log.add('sent', { text, hint, status: answered ? () => t('status.waiting') : null });
  if (answered)
    exchanges.sent(text, (what, ...more) => {
      log.update(entry, outcomeOf(what, name, hint));
      report(what, ...more);
    });
  else
    report('sent');
  return true;
}

function outcomeOf(what, name, hint) {
  if (what === 'answered')
    return { status: null, hint, error: false };
  return { error: true, status: () => t('status.noanswer'),
    hint: () => (what === 'late' ? noAnswerHint(name) : t('note.ended')) };
}

/** Sends, and returns a promise of { outcome, result, milliseconds }; outcome may be 'offline'. */
function ask(text) {
  return new Promise((resolve) => {
    const report = (outcome, result, milliseconds) => resolve({ outcome, result, milliseconds });
    if (!send(text, report))
      report('offline');
  });
}

/** Like ask(), but without logging. */
function askQuietly(text) {
  return new Promise((resolve) => {
    const report = (outcome, result, milliseconds) => resolve({ outcome, result, milliseconds });
    if (!connection.send(text)) {
      report('offline');
      return;
    }
    exchanges.sent(text, report, true);
  });
}

function received(raw) {
  if (raw.startsWith(FRAME_START)) {
    script.heard('frame', '');
    return; // shown, not logged
  }
  const answer = DeviceClient.parseAnswer(raw);
  if (!answer) {
    log.add('pushed', { text: raw, status: () => t('status.unframed') });
    script.heard('text', raw);
    return;
  }
  const exchange = exchanges.answered(answer.name, answer.result);
  if (exchange && exchange.quiet)
    return;
  const failed = isFailure(answer.name, answer.result);
  const entry = log.add(exchange ? 'answer' : 'pushed', {
    name: answer.name, text: answer.result, raw, error: failed, asked: exchange ? exchange.text : '',
    status: exchange ? () => duration(exchange.milliseconds) : null,
  });
  if (failed && exchange)
    log.update(entry, { hint: () => [whyButton(entry)] });
  if (!exchange)
    script.heard(answer.name, answer.result);
}

/** What a failure offers below it. */
function whyButton(entry) {
  const made = button('link', t('why.look'), (event) => {
    event.stopPropagation();
    reasons.explain(entry);
  });
  made.tabIndex = -1; // key: W
  return made;
}

// ---- Preview ------------------------------------------------------------------------------------

/** Frame sizes to choose from; the server accepts any from 400×300. */
const FRAME_SIZES = ['640,480', '800,600', '1024,768', '1280,720', '1600,1200', '1920,1080'];

const CAMERAS = [
  ['bStartPlay()', 'camera.main'], ['bStartPlay2()', 'camera.number', 2],
  ['bStartPlay3()', 'camera.number', 3], ['bStartPlay5()', 'camera.number', 5],
  ['bStartPlay6()', 'camera.number', 6], ['bStartPlay8()', 'camera.number', 8],
  ['bStartPlay9()', 'camera.number', 9], ['bStartPlayOpen()', 'camera.dual'],
];

const zoom = new Zoom(byId('stage'), byId('picture'), showZoom);
const picture = new LivePicture(byId('picture'), () => zoom.place());

let wasLive = false;

function showPicture() {
  const { shown, newest } = picture;
  const { dropped, broken } = picture.figures();
  const connected = connection.state === 'open';
  const live = connected && picture.isLive();
  if (live !== wasLive)
    deviceState.draw();
  wasLive = live;
  byId('live').className = `badge ${live ? 'live' : ''}`;
  setText('live', live ? t('live')
    : shown ? t('still', clock(newest.time).slice(0, 8)) : t('no.picture'));
  byId('picture').hidden = !shown;
  byId('no-picture').hidden = Boolean(shown);
  setText('no-picture', t(connected ? 'no.picture.start' : 'no.picture'));
  byId('save-frame').disabled = !shown;
  setText('figure-rate', newest ? t('fps', picture.rate.toFixed(live ? 1 : 0)) : '');
  setText('figure-size', shown ? `${shown.width}×${shown.height}` : '');
  setText('figure-bytes', newest ? `${(picture.size() / 1000).toFixed(1)} kB` : '');
  setText('figure-skipped', shown ? t('dropped', count(dropped)) : '');
  setText('figure-broken', broken ? t('broken', count(broken)) : '');
}

function showZoom() {
  setText('figure-zoom', `${Math.round(zoom.scale * window.devicePixelRatio * 100)} %`);
  byId('zoom-fit').setAttribute('aria-pressed', String(zoom.fitting));
  byId('zoom-actual').setAttribute('aria-pressed', String(zoom.isActual()));
}

function fillSelects() {
  const camera = byId('camera').value;
  removeChildren(byId('camera'));
  for (const [command, ...name] of CAMERAS)
    byId('camera').append(new Option(t(...name), command));
  byId('camera').value = camera || CAMERAS[0][0];
  removeChildren(byId('frame-size'));
  byId('frame-size').append(new Option(t('frame.size.choose'), ''));
  for (const size of FRAME_SIZES)
    byId('frame-size').append(new Option(size.replace(',', '×'), size));
}

byId('start').addEventListener('click', () => send(byId('camera').value));
byId('stop').addEventListener('click', () => send('bStopPlay()'));
byId('frame-size').addEventListener('change', () => {
  if (byId('frame-size').value)
    send(`vSetPreViewSize(${byId('frame-size').value})`);
  byId('frame-size').value = ''; // the frames show their size
});
byId('zoom-in').addEventListener('click', () => zoom.zoomBy(ZOOM_STEP));
byId('zoom-out').addEventListener('click', () => zoom.zoomBy(1 / ZOOM_STEP));
byId('zoom-fit').addEventListener('click', () => zoom.fit());
byId('zoom-actual').addEventListener('click', () => zoom.actual());
byId('save-frame').addEventListener('click', () => {
  const { base64, time } = picture.newest;
  const { width, height } = picture.shown;
  saveFile(`frame-${fileStamp(time)}-${width}x${height}.jpg`, bytesOf(base64), 'image/jpeg');
});

// ---- Log ----------------------------------------------------------------------------------------

const log = new Log(
  { list: byId('log'), latest: byId('log-latest'), empty: byId('log-empty'), count: byId('log-count') },
  { showWhole, why: (entry) => reasons.explain(entry),
    again: (entry) => { showTab('command'); form.bringBack(entry.text); } });
const reasons = new Reasons(askQuietly, log);

byId('log-clear').addEventListener('click', () => log.clear());
byId('log-copy').addEventListener('click', () => copyText(log.asParts(false).join('')));
byId('log-save').addEventListener('click', () => {
  saveFile(`console-${fileStamp(new Date())}.txt`, log.asParts(true), 'text/plain;charset=utf-8');
});
byId('log-pause').addEventListener('click', () => {
  log.pause(!log.paused);
  byId('log-pause').setAttribute('aria-pressed', String(log.paused));
});
byId('log-search').addEventListener('input', () => log.show({ words: byId('log-search').value }));
const kindButtons = document.querySelectorAll('[data-kind]');
for (const each of kindButtons) {
  each.addEventListener('click', () => {
    log.show({ kind: each.dataset.kind });
    press(kindButtons, 'kind', each.dataset.kind);
  });
}

// ---- Commands, script, device -------------------------------------------------------------------

const tree = new CommandTree(
  { tree: byId('tree'), search: byId('search'), empty: byId('tree-empty'), count: byId('command-count') },
  (command, focus) => {
    showTab('command');
    form.choose(command, focus);
  });
const form = new CommandForm(tree, (text) => {
  const sent = send(text);
  if (sent)
    tree.used(commandName(text));
  return sent;
});
const script = new Script({
  text: byId('script'), marks: byId('script-marks'), results: byId('script-results'),
  state: byId('script-state'), run: byId('script-run'), step: byId('script-step'),
  stop: byId('script-stop'), halt: byId('script-halt'), table: byId('script-table'),
}, ask);
const results = new Results(script, () => connection.address);
const deviceState = new DeviceState(
  { list: byId('device-facts'), time: byId('device-time'), read: byId('device-read'),
    simulation: byId('simulation') }, askQuietly, () => connection.state === 'open' && picture.isLive(),
  (asked, milliseconds, silent) => log.add('note', {
    error: silent.length > 0,
    say: () => (silent.length ? t('note.device.failed', silent.join(', '))
      : t('note.device', asked, duration(milliseconds))),
  }));

const TABS = ['command', 'script', 'recipes'];

function showTab(name) {
  for (const each of TABS) {
    const chosen = each === name;
    byId(`tab-${each}`).setAttribute('aria-selected', String(chosen));
    byId(`tab-${each}`).tabIndex = chosen ? 0 : -1;
    byId(`pane-${each}`).hidden = !chosen;
  }
  settings.set('tab', name);
}

for (const name of TABS)
  byId(`tab-${name}`).addEventListener('click', () => showTab(name));
document.querySelector('[role=tablist]').addEventListener('keydown', (event) => {
  const by = { ArrowLeft: TABS.length - 1, ArrowRight: 1 }[event.key];
  if (!by)
    return;
  const now = TABS.findIndex((name) => !byId(`pane-${name}`).hidden);
  const other = TABS[(now + by) % TABS.length];
  showTab(other);
  byId(`tab-${other}`).focus();
});

/** Puts a recipe into the script, and starts it. */
function openRecipe(text, run) {
  if (script.running)
    return;
  showTab('script');
  script.setText(text);
  if (run)
    script.run(false);
}

byId('script-save').addEventListener('click', () => {
  saveFile(`script-${fileStamp(new Date())}.txt`, byId('script').value, 'text/plain;charset=utf-8');
});
byId('script-load').addEventListener('click', () => byId('script-file').click());
byId('script-file').addEventListener('change', async () => {
  const [file] = byId('script-file').files;
  byId('script-file').value = ''; // so that the same file can be loaded again
  if (file)
    script.setText(await new Response(file).text());
});
byId('device-read').addEventListener('click', () => deviceState.readAll());
byId('device-auto').checked = settings.get('device.auto', true);
byId('device-auto').addEventListener('change', () => {
  settings.set('device.auto', byId('device-auto').checked);
});

/** Saves the state, the log, the script's results and the frame. */
async function saveReport() {
  await deviceState.readAll();
  const frame = picture.newest;
  const rows = (pairs) => pairs.map((cells) => ({ cells }));
  saveFile(`report-${fileStamp(new Date())}.html`, reportHtml({
    title: t('report.title', `${day(new Date())} ${clock(new Date())}`),
    facts: rows([
      [t('server'), connection.address], [t('report.state'), byId('state-text').textContent],
      [t('report.frames'), byId('figures').innerText.replace(/\s*\n\s*/g, ' · ')],
      [t('report.browser'), navigator.userAgent], [t('report.screen'), `${window.innerWidth}×${window.innerHeight}`],
      [t('tab.script'), script.saying()],
    ]),
    device: rows([...deviceState.results].map(([command, result]) => [command, result === null ? t('status.noanswer') : result])),
    log: reportLog(log.entries),
    results: script.records.map(({ line, text, mark, result, milliseconds }) => ({ bad: mark === 'bad',
      cells: [line, MARKS[mark], text, result, duration(milliseconds)] })),
    frame: frame ? frame.base64 : '',
    caption: frame ? `${day(frame.time)} ${clock(frame.time)}` : '',
  }), 'text/html;charset=utf-8');
}

byId('report').addEventListener('click', saveReport);

function foldDevice(open) {
  byId('device-facts').hidden = !open;
  byId('device-fold').setAttribute('aria-expanded', String(open));
  settings.set('device.open', open);
}

byId('device-fold').addEventListener('click', () => foldDevice(byId('device-facts').hidden));

// ---- Language and colors -----------------------------------------------------------------------

const languageButtons = document.querySelectorAll('[data-language]');
const themeButtons = document.querySelectorAll('[data-theme-choice]');
for (const each of languageButtons)
  each.addEventListener('click', () => i18n.choose(each.dataset.language));
for (const each of themeButtons) {
  each.addEventListener('click', () => {
    theme.choose(each.dataset.themeChoice);
    press(themeButtons, 'themeChoice', theme.choice);
  });
}

// ---- Start --------------------------------------------------------------------------------------

i18n.onChange(() => {
  press(languageButtons, 'language', i18n.language);
  fillSelects();
  tree.draw();
  form.refresh();
  log.draw();
  deviceState.draw();
  script.draw();
  listRecipes(byId('recipes'), openRecipe);
  showConnection();
});

i18n.apply();
press(themeButtons, 'themeChoice', theme.choice);
press(kindButtons, 'kind', 'all');
showTab(TABS.includes(settings.get('tab')) ? settings.get('tab') : 'command');
foldDevice(settings.get('device.open', true));
makeSplitter(byId('split-navigator'), '--navigator', document.querySelector('.navigator'), false);
makeSplitter(byId('split-work'), '--work', byId('work'), true);
makeSplitter(byId('split-log'), '--log', document.querySelector('.right'), true);
if (facts.commands.length)
  form.choose(facts.byName.get(settings.get('command')) || facts.commands[0], false);
byId('address').value = new URLSearchParams(location.search).get('server') || DEFAULT_ADDRESS;
setInterval(() => picture.measure(), 1000);
setInterval(() => {
  showConnectionState(); // an attempt to reconnect starts without an event
  showPicture();
}, 250);
byId('command').focus();
openTyped();
