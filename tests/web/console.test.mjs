// SPDX-License-Identifier: MIT
//
// The console in Chromium, from file://, against the real server.
import assert from 'node:assert/strict';
import { existsSync, readFileSync, readdirSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, afterEach, before, test } from 'node:test';
import { chromium } from 'playwright-core';
import { startServer } from './server.mjs';

const consoleFolder = new URL('../../console/', import.meta.url);
const executablePath = process.env.CHROMIUM || '/usr/bin/chromium';
const skip = existsSync(executablePath) ? false : `no ${executablePath}`;

let server;
let browser;
let context;
let faults; // of the pages: exceptions, broken policies
let outside; // what they asked for elsewhere

before(async () => {
  if (skip)
    return;
  server = await startServer();
  browser = await chromium.launch({ executablePath, args: ['--no-sandbox', '--disable-gpu'] });
});
after(async () => {
  if (browser)
    await browser.close();
  if (server)
    await server.end();
});
afterEach(async () => {
  if (!context)
    return;
  await context.close();
  context = null;
  assert.deepEqual(faults, []);
  assert.deepEqual(outside, []);
});

/** A page as at a first visit. */
async function openConnected() {
  context = await browser.newContext({ viewport: { width: 1280, height: 800 }, locale: 'en-US', colorScheme: 'light' });
  faults = [];
  outside = [];
  const page = await context.newPage();
  page.setDefaultTimeout(20000);
  page.on('pageerror', (error) => faults.push(error.message));
  page.on('console', (message) => {
    if (message.type() === 'error' && !message.text().includes('ERR_CONNECTION_REFUSED'))
      faults.push(message.text());
  });
  page.on('request', (request) => {
    if (!/^(file|data|blob):/.test(request.url()))
      outside.push(request.url());
  });
  await page.goto(new URL('index.html', consoleFolder).href);
  await page.waitForSelector('#state.open');
  return page;
}

async function send(page, text) {
  await page.fill('#command', text);
  await page.press('#command', 'Enter');
}

/** The result that the log shows for the latest answer of a command. */
async function answerOf(page, name) {
  const title = page.locator('b.name', { hasText: new RegExp(`^${name}$`) });
  const answer = page.locator('#log li.answer', { has: title });
  await answer.last().waitFor();
  return answer.last().locator('.text').innerText();
}

/** Waits until the canvas has shown three different pictures. */
async function pictureMoves(page) {
  await page.waitForFunction(() => {
    window.seenPictures = (window.seenPictures || new Set()).add(document.querySelector('#picture').toDataURL());
    return window.seenPictures.size >= 3;
  }, null, { polling: 200 });
}

test('needs nothing newer than Chromium 80 has', () => {
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

test('connects and reads the state of the device', { skip }, async () => {
  const page = await openConnected();
  await page.locator('#device-facts', { hasText: 'V1.0.2' }).waitFor();
  assert.match(await page.innerText('#device-facts'), /1920 × 1080/);
  assert.equal(await page.innerText('#command-count'), '179');
});

test('shows a moving preview and saves its frame', { skip }, async () => {
  const page = await openConnected();
  await page.click('#start');
  assert.equal(await answerOf(page, 'bStartPlay'), 'true');
  await pictureMoves(page);
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
  assert.equal(await answerOf(page, 'bStopPlay'), 'true');
});

test('a command of each family is answered', { skip }, async () => {
  const page = await openConnected();
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
    await send(page, text);
    assert.match(await answerOf(page, name), result);
  }
  await page.locator('.thumbnail').first().waitFor(); // the photo of the card
});

test('comes back after the server was restarted', { skip }, async () => {
  const page = await openConnected();
  await server.kill();
  await page.locator('#trouble').waitFor();
  await send(page, 'getVersion()');
  assert.match(await page.innerText('#command-hint'), /^Not connected/);
  await server.start();
  await page.waitForSelector('#state.open');
  assert.equal(await page.isVisible('#trouble'), false);
  await send(page, 'getVersion()');
  assert.equal(await answerOf(page, 'getVersion'), 'V1.0.2');
});

test('fields make the text, and the text fills the fields', { skip }, async () => {
  const page = await openConnected();
  await page.keyboard.press('Escape');
  await page.focus('#stage');
  await page.keyboard.press('/'); // from here on without a mouse
  await page.keyboard.type('vSetPreViewSize');
  await page.keyboard.press('Enter');
  await page.keyboard.type('900');
  await page.keyboard.press('Tab');
  await page.keyboard.type('700');
  assert.equal(await page.inputValue('#command'), 'vSetPreViewSize(900,700)');
  await page.keyboard.press('Control+Enter');
  assert.equal(await answerOf(page, 'vSetPreViewSize'), '(empty)');
  await page.keyboard.press('Control+k');
  await page.keyboard.type('sGetBarCodeEx'); // its first field is a list: that stays shut
  await page.keyboard.press('Enter');
  await page.keyboard.press('Control+Enter');
  assert.equal(await answerOf(page, 'sGetBarCodeEx'), '(empty)');

  await page.fill('#command', 'bStartPlayRotate(90)');
  assert.equal(await page.inputValue('#fields select'), '90');
  await page.fill('#command', 'getversion()');
  assert.match(await page.innerText('#command-hint'), /getVersion/);
  await page.fill('#search', '翻转');
  assert.ok(await page.locator('#tree .command-name', { hasText: 'vSetFlip' }).count());
});

test('runs a script and marks its lines', { skip }, async () => {
  const page = await openConnected();
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

test('keeps language and colors, and never scrolls as a whole', { skip }, async () => {
  const page = await openConnected();
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
  const page = await openConnected();
  const hostile = '<img src=x onerror=window.caught=1><b id=planted>.ini';
  writeFileSync(join(server.folder, hostile), '');
  await send(page, `sGetAllFormatFiles(${server.folder},ini)`);
  assert.ok((await answerOf(page, 'sGetAllFormatFiles')).includes(hostile));
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
