// SPDX-License-Identifier: MIT
//
// The console in Chromium, from file://, against the real server.
import assert from 'node:assert/strict';
import { readFileSync, readdirSync, statSync, writeFileSync } from 'node:fs';
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

/** Runs a script to its end. */
async function runScript(text) {
  await page.click('#tab-script');
  await page.evaluate((lines) => script.setText(lines), text);
  await page.click('#script-run');
  await page.waitForFunction(() => !script.running);
}

const marks = () => page.$$eval('#script-marks .mark', (all) => all.map((each) => each.textContent));

test('says what is wrong with arguments beside their fields, and sends them all the same', { skip }, async () => {
  await openConnected();
  await page.fill('#command', 'vSetPreViewSize(abc,700)');
  assert.deepEqual(await page.locator('.field-warning').allInnerTexts(), ['Not a whole number: read as 0.', '']);
  await page.press('#command', 'Enter');
  assert.equal(await answerOf('vSetPreViewSize'), '(empty)');
  await page.fill('#command', 'bSaveJPG(/tmp)');
  assert.deepEqual(await page.locator('.field-warning').allInnerTexts(), ['', 'Missing.']);
  assert.match(await page.innerText('#command-hint'), /^Takes 2 arguments, and these are 1: .* the answer is false\.$/);
  await page.fill('#fields input >> nth=1', 'a');
  assert.equal(await page.locator('.field-warning:visible').count(), 0);
});

test('a failure leads to its reason in the server’s log', { skip }, async () => {
  await openConnected();
  const advice = page.locator('#log .advice').last();
  for (const file of ['one', 'two', 'one']) {
    await send(`bDeleteFile(/nowhere/${file})`);
    await page.waitForFunction(() => !exchanges.waiting.length);
  }
  await page.evaluate(() => {
    const { read } = reasons;
    reasons.read = () => read.call(reasons, window.reads = (window.reads || 0) + 1);
  });
  const whys = page.locator('#log .advice button');
  await whys.nth(1).click();
  await page.locator('#log .advice', { hasText: '"/nowhere/two": there is no such file' }).waitFor();
  await send('bDeleteFile(/nowhere/one)'); // the log that was read doesn't have this one
  await page.waitForFunction(() => !exchanges.waiting.length);
  await whys.nth(0).click();
  await page.locator('#log .advice', { hasText: '"/nowhere/one": there is no such file' }).waitFor();
  assert.equal(await page.evaluate(() => window.reads), 1, 'it was read after this answer');
  await page.evaluate(() => { window.logFolders = () => ['/nowhere']; });
  await send('bDeleteFile(/nowhere/three)');
  await whys.nth(2).waitFor();
  await page.focus('#log');
  await page.keyboard.press('End');
  await page.keyboard.press('w');
  await page.locator('#log .advice', { hasText: 'On the terminal: devicectl status' }).waitFor();
  assert.ok(await advice.locator('input').isVisible());
});

test('runs a script and marks its lines', { skip }, async () => {
  await openConnected();
  await runScript('# versions\ngetVersion()\nwait 1\nbDirIsExist(/nowhere)\ndisplayVideoPara()\nversion()');
  assert.deepEqual(await marks(), ['', '✓', '·', '✓', '✗', '✓']);
  assert.match(await page.innerText('#script-results'), /V1\.0\.2/);
  await page.check('#script-halt');
  await runScript('displayVideoPara()\nversion()');
  assert.deepEqual(await marks(), ['✗', '']);
  assert.match(await page.innerText('#script-state'), /^0 passed, 1 failed, .*stopped at line 1$/);
  await page.click('[data-language=zh]');
  await page.locator('#script-state', { hasText: /^0 成功，1 失败/ }).waitFor();
  await page.click('[data-language=en]');
  await page.uncheck('#script-halt');

  await runScript('repeat 2\nx = version()\nfor y in a, b\nbDirIsExist(/nowhere${n}${y}${x})\nexpect false\nend\nend\n'
    + 'displayVideoPara()\nexpect false\nbStartPlay()\nwait for frame\nwait for Nothing 0');
  assert.deepEqual(await marks(), ['·', '✓', '·', '✓', '✓', '·', '·', '✓', '✓', '✓', '✓', '✗']);
  const sent = await page.evaluate(() => script.records.map((each) => each.text).filter((text) => text.startsWith('bDir')));
  assert.deepEqual(sent, ['1a', '1b', '2a', '2b'].map((each) => `bDirIsExist(/nowhere${each}linux_kylin_arm64)`));
  await runScript('for x in displayVideoPara, version\n${x}()\nend');
  assert.deepEqual(await marks(), ['·', '✗', '·'], 'one round has failed');
  await runScript('getVersion()\nrepeat x\nend');
  assert.equal(await page.innerText('#script-state'), '2 lines aren’t understood: not started');
});

test('a script leaves results, which lead to its lines', { skip }, async () => {
  await openConnected();
  await runScript('version()\n'.repeat(200) + 'displayVideoPara()');
  assert.match(await page.innerText('#script-state'), /^200 passed, 1 failed/);
  await page.click('#script-table');
  assert.equal(await page.innerText('#results-count'), '201 of 201');
  await page.check('#results-failed');
  const [download] = await Promise.all([page.waitForEvent('download'), page.click('#results-junit')]);
  assert.match(readFileSync(await download.path(), 'utf8'), /tests="201" failures="1"/);
  await page.click('#results-rows button');
  assert.ok(await page.evaluate(() => byId('script').scrollTop) > 3000, 'its line is shown');
});

test('a long script is drawn where it is seen, and stops at once', { skip }, async () => {
  await openConnected();
  await page.click('#tab-script');
  for (const text of ['version()\n'.repeat(5000), 'repeat 999999999\nx = 1\nend', 'wait 600000']) {
    await page.evaluate((lines) => script.setText(lines), text);
    await page.click('#script-run');
    await page.waitForFunction(() => script.running && script.outcomes.size > 0);
    await page.click('#script-stop');
    await page.waitForFunction(() => !script.running, null, { timeout: 2000 });
    assert.ok(await page.locator('#script-marks li').count() < 60);
  }
  await page.reload();
  assert.equal(await page.inputValue('#script'), 'wait 600000');
});

test('a recipe takes one click', { skip }, async () => {
  await openConnected();
  await page.fill('#search', 'take photo');
  await page.press('#search', 'Enter');
  assert.equal(await page.innerText('#command-name'), 'bSaveJPG');
  await page.click('#tab-recipes');
  await page.locator('#recipes .recipe', { hasText: 'Photo, PDF, barcodes' }).getByRole('button', { name: 'Run' }).click();
  await page.waitForFunction(() => !script.running && script.records.length);
  assert.equal(await page.evaluate(() => script.records.filter((each) => each.mark === 'bad').map((each) => each.text).join()), '');
});

test('large results neither empty the log nor stay in the page', { skip }, async () => {
  await openConnected();
  const large = 4e7;
  await page.evaluate((length) => {
    log.clear();
    for (let i = 0; i < 42; i += 1)
      received(`BeginEvent${i}EndEvent${i}`);
    for (const letter of 'AB')
      received(`BeginBase64Encode${letter.repeat(length)}EndBase64Encode`);
    received(`BeginBase64Encode/9j/${'A'.repeat(100)}EndBase64Encode`); // begins like a picture
  }, large);
  await page.waitForFunction(() => document.querySelectorAll('#log li').length === 45);
  assert.ok(await page.evaluate(() => log.entries.every((entry) => entry.raw.length < 5000)));
  const [download] = await Promise.all([page.waitForEvent('download'), page.click('#log-save')]);
  assert.ok(statSync(await download.path()).size > 2 * large);
  await page.locator('#log li').last().dblclick();
  await page.waitForSelector('#whole[open]');
  assert.equal(await page.isVisible('#whole-save'), false);
  await page.keyboard.press('Escape');
  await page.locator('#log li').nth(43).dblclick();
  await page.locator('#whole-size', { hasText: '40,000,032 characters' }).waitFor();
  assert.match(await page.inputValue('#whole-text'), /^BeginBase64EncodeBBBB/);
});

test('a report has the state, the log and the frame', { skip }, async () => {
  await openConnected();
  await page.click('#start');
  await page.locator('#live', { hasText: 'live' }).waitFor();
  assert.match(await page.innerText('#device-facts'), /Camera\s+other, running/);
  await send('bDeleteFile(<b>&)');
  const [download] = await Promise.all([page.waitForEvent('download'), page.click('#report')]);
  assert.match(download.suggestedFilename(), /^report-.*\.html$/);
  const html = readFileSync(await download.path(), 'utf8');
  for (const part of [/GetDeviceStatus\(\)/, /bDeleteFile\(&#60;b&#62;&#38;\)/, /src="data:image\/jpeg;base64,\/9j\//])
    assert.match(html, part);
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
