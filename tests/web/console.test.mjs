// SPDX-License-Identifier: MIT
//
// The console in Chromium, from file://, against the real server.
import assert from 'node:assert/strict';
import { readFileSync, readdirSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, afterEach, before, test } from 'node:test';
import { Browser, skip } from './browser.mjs';
import { startServer } from './server.mjs';

const consoleFolder = new URL('../../console/', import.meta.url);
let server;
let browser;
let page; // the one of the current test

function listen(tab) {
  tab.on('console', (message) => {
    if (message.type() === 'error' && !message.text().includes('ERR_CONNECTION_REFUSED'))
      tab.faults.push(message.text()); // a broken policy, mostly
  });
  tab.on('request', (request) => {
    if (!/^(file|data|blob|about):/.test(request.url()))
      tab.faults.push(`asked for ${request.url()}`);
  });
}

before(async () => {
  if (!skip)
    [server, browser] = await Promise.all([startServer(),
      Browser.launch({ locale: 'en-US', colorScheme: 'light' }, listen)]);
});
after(() => browser && Promise.all([browser.close(), server.end()]));
afterEach(async () => {
  if (page)
    await browser.leave(page);
  page = null;
});

/** Opens the console as on a first visit. */
async function openConnected() {
  page = await browser.open(new URL('index.html', consoleFolder).href);
  await page.waitForSelector('#state.open');
}

async function send(text) {
  await page.fill('#command', text);
  await page.press('#command', 'Enter');
}

/** The result that the log shows for the latest answer to a command. */
async function answerOf(name) {
  const title = page.locator('b.name', { hasText: new RegExp(`^${name}$`) });
  const answer = page.locator('#log li.answer', { has: title });
  await answer.last().waitFor();
  return answer.last().locator('.text').innerText();
}

/** Waits until the canvas has shown three different pictures. */
async function pictureMoves() {
  await page.waitForFunction(() => {
    window.seenPictures = (window.seenPictures || new Set()).add(document.querySelector('#picture').toDataURL());
    return window.seenPictures.size >= 3;
  }, null, { polling: 50 });
}

test('uses nothing newer than Chromium 80', () => {
  const newer = {
    js: /\.(at|replaceAll|replaceChildren|findLast|toSorted)\(|structuredClone|Object\.hasOwn|\?\?=|\|\|=|&&=|this\.#/,
    css: /:(is|where|has)\(|\b(inset|aspect-ratio|accent-color|inset-inline)\s*:|@container|@layer|^\s*gap:/m,
  };
  for (const name of readdirSync(consoleFolder)) {
    const pattern = newer[name.split('.').pop()];
    if (pattern)
      assert.doesNotMatch(readFileSync(new URL(name, consoleFolder), 'utf8'), pattern, name);
  }
});

test('connects and reads the device state', { skip }, async () => {
  await openConnected();
  await page.locator('#device-facts', { hasText: 'V1.0.2' }).waitFor();
  await page.locator('#simulation').waitFor();
  assert.match(await page.innerText('#device-facts'), /640 × 480/);
  assert.equal(await page.innerText('#command-count'), '179');
});

test('shows a moving preview and saves its frame', { skip }, async () => {
  await openConnected();
  await page.click('#start');
  assert.equal(await answerOf('bStartPlay'), 'true');
  await pictureMoves();
  await page.locator('#live', { hasText: 'live' }).waitFor();
  assert.match(await page.innerText('#figure-size'), /^800×600$/);

  const [download] = await Promise.all([page.waitForEvent('download'), page.click('#save-frame')]);
  assert.match(download.suggestedFilename(), /^frame-\d{4}-\d\d-\d\d-\d{9}-800x600\.jpg$/);
  const saved = readFileSync(await download.path());
  assert.deepEqual([...saved.subarray(0, 3)], [0xff, 0xd8, 0xff]);

  await page.selectOption('#frame-size', '1024,768');
  await page.locator('#figure-size', { hasText: '1024×768' }).waitFor();
  const scale = () => page.innerText('#figure-zoom');
  const fitting = await scale();
  await page.hover('#stage');
  await page.mouse.wheel(0, -100);
  assert.notEqual(await scale(), fitting);
  await page.click('#stop');
  assert.equal(await answerOf('bStopPlay'), 'true');
});

test('a command of each family is answered', { skip }, async () => {
  await openConnected();
  const folder = server.folder;
  const commands = [
    ['preview', 'bStartPlay()', /^true$/],
    ['settings', 'vSetDPI(200,300)', /^true$/],
    ['capture', `bSaveJPG(${folder},page)`, /^true$/],
    ['base64', `Base64Encode(${folder}/devices.ini)`, /^W2NhbWVyYXNd/],
    ['document', 'bSavePDFStart()', /^(true|false)$/],
    ['scan', 'iTimerScan(5)', /^true$/],
    ['recording', 'isRecording()', /^false$/],
    ['output', 'vSetWaterPrint(0)', /^true$/],
    ['card', 'readIDMsg()', /^\{/],
    ['face', 'lImageIdMatch(one)', /^-99$/],
    ['fingerprint', 'lFingerMatch(1,00)', /^0$/],
    ['status', 'version()', /^linux_/],
    ['upload', 'bUpLoadImage(one)', /^false$/],
    ['file', `bFileIsExist(${folder}/page.jpg)`, /^true$/],
    ['companion', 'WebbrowserExit()', /^true$/],
  ];
  assert.deepEqual(commands.map(([family]) => family),
                   await page.evaluate(() => facts.families.map((family) => family.id)));
  for (const [family, text, result] of commands) {
    const name = text.slice(0, text.indexOf('('));
    assert.equal(await page.evaluate((known) => facts.byName.get(known).family, name), family);
    await send(text);
    assert.match(await answerOf(name), result);
  }
  await page.locator('.thumbnail').first().waitFor(); // the photo of the card
});

test('reconnects after a restart of the server', { skip }, async () => {
  await openConnected();
  await server.kill();
  await page.locator('#trouble').waitFor();
  await send('getVersion()');
  assert.match(await page.innerText('#command-hint'), /^Not connected/);
  await server.start();
  await page.waitForSelector('#state.open');
  assert.equal(await page.isVisible('#trouble'), false);
  await send('getVersion()');
  assert.equal(await answerOf('getVersion'), 'V1.0.2');
});

test('fields compose the text, and the text fills the fields', { skip }, async () => {
  await openConnected();
  await page.keyboard.press('Escape');
  await page.focus('#stage');
  await page.keyboard.press('/'); // keyboard only from here on
  await page.keyboard.type('vSetPreViewSize');
  await page.keyboard.press('Enter');
  await page.keyboard.type('900');
  await page.keyboard.press('Tab');
  await page.keyboard.type('700');
  assert.equal(await page.inputValue('#command'), 'vSetPreViewSize(900,700)');
  await page.keyboard.press('Control+Enter');
  assert.equal(await answerOf('vSetPreViewSize'), '(empty)');
  await page.keyboard.press('Control+k');
  await page.keyboard.type('sGetBarCodeEx'); // its first field is a list, which must not open
  await page.keyboard.press('Enter');
  await page.keyboard.press('Control+Enter');
  assert.equal(await answerOf('sGetBarCodeEx'), '(empty)');

  await page.fill('#command', 'bStartPlayRotate(90)');
  assert.equal(await page.inputValue('#fields select'), '90');
  await page.fill('#command', 'getversion()');
  assert.match(await page.innerText('#command-hint'), /getVersion/);
  await page.fill('#search', '翻转');
  assert.ok(await page.locator('#tree .command-name', { hasText: 'vSetFlip' }).count());
});

test('runs a script and marks its lines', { skip }, async () => {
  await openConnected();
  await page.click('#tab-script');
  await page.fill('#script', '# versions\ngetVersion()\nwait 1\nbDirIsExist(/nowhere)\ndisplayVideoPara()\nversion()');
  const marks = () => page.$$eval('#script-marks .mark', (all) => all.map((each) => each.textContent));
  const done = () => page.waitForFunction(() => !script.running);
  await page.click('#script-run');
  await done();
  assert.deepEqual(await marks(), ['', '✓', '·', '✓', '✗', '✓']);
  assert.match(await page.innerText('#script-results'), /V1\.0\.2/);

  await page.check('#script-halt');
  await page.click('#script-run');
  await done();
  assert.deepEqual(await marks(), ['', '✓', '·', '✓', '✗', '']);

  await page.fill('#script', 'getVersion()\nwait 600000');
  await page.click('#script-run');
  await page.waitForFunction(() => script.next === 1);
  await page.keyboard.press('Escape');
  await done();
  await page.reload();
  assert.equal(await page.inputValue('#script'), 'getVersion()\nwait 600000');
});

test('remembers language and colors, and never scrolls as a whole', { skip }, async () => {
  await openConnected();
  await page.click('[data-language=zh]');
  await page.click('[data-theme-choice=dark]');
  await page.reload();
  assert.equal(await page.getAttribute('html', 'lang'), 'zh');
  assert.equal(await page.getAttribute('html', 'data-theme'), 'dark');
  assert.equal(await page.innerText('h1'), '设备服务控制台');
  for (const [width, height] of [[1280, 800], [1920, 1080], [1024, 768]]) {
    await page.setViewportSize({ width, height });
    const over = await page.evaluate(() => [document.documentElement.scrollWidth - innerWidth,
      document.documentElement.scrollHeight - innerHeight]);
    assert.deepEqual(over, [0, 0], `${width}x${height}`);
  }
});

test('texts from the server stay texts', { skip }, async () => {
  await openConnected();
  const hostile = '<img src=x onerror=window.caught=1><b id=planted>.ini';
  writeFileSync(join(server.folder, hostile), '');
  await send(`sGetAllFormatFiles(${server.folder},ini)`);
  assert.ok((await answerOf('sGetAllFormatFiles')).includes(hostile));
  await page.locator('#log li.answer').last().dblclick();
  assert.ok((await page.inputValue('#whole-text')).includes(hostile));
  await page.keyboard.press('Escape');
  assert.equal(await page.locator('#planted, img[src=x]').count(), 0);
  assert.equal(await page.evaluate(() => window.caught), undefined);

  await page.click('[data-kind=sent]');
  assert.equal(await page.locator('#log li.answer').count(), 0);
  await page.fill('#log-search', 'nothing like it');
  assert.equal(await page.locator('#log li').count(), 0);
});
