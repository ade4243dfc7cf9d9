#!/usr/bin/env node
// SPDX-License-Identifier: MIT
//
// usage: scripts/screenshots.mjs [--all] [folder]
//
// Takes the pictures of the documents, in docs/images: the console and the counter pages in Chromium,
// with the built server and its simulated devices. --all takes the console at four widths, in both
// languages and colors, and all counter pages, to look at after a change. Needs what the browser tests
// need, and port 1818.
import { mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Browser, skip } from '../tests/web/browser.mjs';
import { startServer } from '../tests/web/server.mjs';

const root = new URL('..', import.meta.url);
const words = process.argv.slice(2);
const all = words[0] === '--all';
const folder = words[all ? 1 : 0] || fileURLToPath(new URL('docs/images', root));

const counterPages = {
  teller: 'no=12,name=李晓梅,title=高级柜员,window=3',
  callNo: 'no=A012,window=3,business=个人开户,waiting=5',
  pay: 'amount=1234.5,payee=社保中心,no=20261121-7,item=养老保险:1000,item=医疗保险:234.5',
  infoExchange: 'name=张三,idno=110101199001011234,ask=phone,asklength=11',
  evaluate: 'no=12,name=李晓梅',
};

async function take(page, name) {
  const path = join(folder, `${name}.png`);
  await page.screenshot({ path });
  console.log(path);
}

/** Fills the log with what people see first: a photo, a card, a failure and its reason. */
async function useConsole(page) {
  await page.waitForSelector('#state.open');
  await page.click('#start');
  await page.locator('#live.live').waitFor();
  for (const text of ['readIDMsg()', 'bSaveJPG(/tmp,scan1)', 'sGetBarCode(/tmp/scan1.jpg)', 'bDeleteFile(/tmp/nothing.jpg)']) {
    await page.fill('#command', text);
    await page.press('#command', 'Enter');
    const name = text.slice(0, text.indexOf('('));
    await page.locator('#log li.answer', { hasText: name }).waitFor();
  }
  await page.locator('#log .advice button').last().click();
  await page.locator('#log .advice-line', { hasText: 'portable:' }).waitFor();
  await page.fill('#command', 'bSaveJPG(/tmp,scan2)');
}

const lines = `# Three photos, and the barcodes in the last
bStartPlay()
wait for frame 10
repeat 3
  bSaveJPG(/tmp,scan\${n})
end
codes = sGetBarCode(/tmp/scan3.jpg)
expect /SAMPLE/
bFileIsExist(/tmp/scan4.jpg)
expect true
bDeleteFile(/tmp/nothing.jpg)
`;

async function runScript(page) {
  await page.click('#tab-script');
  await page.evaluate((text) => script.setText(text), lines);
  await page.click('#script-run');
  await page.locator('#script-state', { hasText: /passed|成功/ }).waitFor();
}

async function openConsole(browser, { width, height, language, theme }) {
  const page = await browser.open(new URL('console/index.html', root).href, { width, height });
  await page.click(`[data-language=${language}]`);
  await page.click(`[data-theme-choice=${theme}]`);
  return page;
}

async function takeConsole(browser, view, name) {
  const page = await openConsole(browser, view);
  await useConsole(page);
  await page.locator('#spoken:not(.shown)').waitFor({ state: 'attached' });
  await take(page, name);
  if (all || view.language === 'en') {
    await runScript(page);
    await take(page, `${name}-script`);
  }
  if (all) {
    await page.click('#script-table');
    await take(page, `${name}-results`);
    await page.click('#results-close');
    await page.click('#tab-recipes');
    await page.fill('#search', view.language === 'zh' ? '二维码' : 'take photo');
    await take(page, `${name}-recipes`);
    await page.click('#tab-command');
    await page.fill('#command', 'bSetImageArea(a,1e3,,4');
    await take(page, `${name}-wrong`);
    if (view.width < 900)
      await page.screenshot({ path: join(folder, `${name}-whole.png`), fullPage: true });
  }
  await browser.leave(page);
}

async function takeCounterPage(browser, name, data, viewport, suffix = '') {
  const address = new URL(`webSite/${name}.html`, root).href;
  const page = await browser.open(`${address}#data=${encodeURIComponent(data)}`, viewport);
  await page.locator('body.ready').waitFor();
  await page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
  await take(page, `counter-${name}${suffix}`);
  await browser.leave(page);
}

async function takeAll(browser) {
  for (const [width, height] of [[400, 860], [1024, 768], [1280, 800], [1920, 1080]]) {
    for (const [language, theme] of [['en', 'light'], ['zh', 'dark'], ['zh', 'light'], ['en', 'dark']])
      await takeConsole(browser, { width, height, language, theme }, `console-${width}-${language}-${theme}`);
  }
  for (const [name, data] of Object.entries(counterPages)) {
    await takeCounterPage(browser, name, data, { width: 1280, height: 800 });
    await takeCounterPage(browser, name, `${data},lang=en`, { width: 800, height: 600 }, '-small');
    await takeCounterPage(browser, name, `${data},theme=contrast`, { width: 1920, height: 1080 }, '-contrast');
    await takeCounterPage(browser, name, `${data},text=${'很长的文字 '.repeat(80)}`, { width: 1280, height: 800 }, '-long');
  }
}

async function main() {
  if (skip)
    throw new Error(skip);
  mkdirSync(folder, { recursive: true });
  const [server, browser] = await Promise.all([startServer({ settings: '[cameras]\n1=scene\n' }),
    Browser.launch({ locale: 'en-US', colorScheme: 'light' })]);
  try {
    if (all) {
      await takeAll(browser);
    } else {
      await takeConsole(browser, { width: 1280, height: 800, language: 'en', theme: 'light' }, 'console');
      await takeConsole(browser, { width: 1280, height: 800, language: 'zh', theme: 'dark' }, 'console-zh');
      for (const [name, data] of Object.entries(counterPages))
        await takeCounterPage(browser, name, data, { width: 800, height: 500 });
    }
  } finally {
    await Promise.all([browser.close(), server.end()]);
  }
}

await main();
