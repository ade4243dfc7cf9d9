// SPDX-License-Identifier: MIT
//
// The site of the documents (scripts/docs.sh) in Chromium, from file://, and the page of "Start in five
// minutes" with the real server.
import assert from 'node:assert/strict';
import { cpSync, existsSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { Browser, skip as noBrowser } from './browser.mjs';
import { startServer } from './server.mjs';

const path = (relative) => fileURLToPath(new URL(relative, import.meta.url));
const site = path('../../build/site');
const noSite = noBrowser || (existsSync(site) ? false : 'build/site is not built: scripts/docs.sh');

let browser;
const loaded = [];
before(async () => {
  if (!noBrowser)
    browser = await Browser.launch({}, (page) => page.on('request', (request) => loaded.push(request.url())));
});
after(() => browser && browser.close());

test('the site finds what is searched for, fits small screens, and loads nothing from elsewhere', { skip: noSite }, async () => {
  const cases = [
    // language, query, one of the first three results
    ['en', 'save jpg', 'protocol.html#bsavejpg'],
    ['en', 'bGetSAM', 'protocol.html#bgetsamstatus'],
    ['en', 'wathermark', 'portable.html#watermark'],
    ['en', 'http status 403', 'troubleshooting.html#the-page-cant-connect'],
    ['zh', '水印', 'portable.html#水印'],
    ['zh', '网页连不上', 'troubleshooting.html#网页连不上'],
    ['zh', '启动主摄像头', 'protocol.html#bstartplay'],
  ];
  for (const [language, query, expected] of cases) {
    const page = await browser.open(`file://${site}/${language}/start.html`, { width: 400, height: 800 });
    await page.fill('#search', query);
    await page.locator('#results a').first().waitFor();
    const found = await page.locator('#results a').evaluateAll((links) => links.slice(0, 3).map((link) => link.getAttribute('href')));
    assert.ok(found.includes(expected), `${query}: ${found}`);
    await page.locator(`#results a[href="${expected}"]`).click();
    const fragment = expected.split('#')[1];
    await page.waitForFunction((id) => Math.abs(document.getElementById(id)?.getBoundingClientRect().top) < 150, fragment);
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth > innerWidth), false, expected);
    await browser.leave(page);
  }
  assert.deepEqual(loaded.filter((url) => !/^(file:|about:)/.test(url)), []);
});

test('the pages of "Start in five minutes" show the preview and save a picture', { skip: noBrowser }, async () => {
  const server = await startServer();
  const folder = mkdtempSync(join(tmpdir(), 'start-'));
  try {
    cpSync(path('../../client'), join(folder, 'client'), { recursive: true });
    for (const [document, saved] of [['start.md', 'Saved as'], ['start.zh.md', '已保存为']]) {
      const [, html] = /```html\n([^]*?)```/.exec(readFileSync(path(`../../docs/${document}`), 'utf8'));
      writeFileSync(join(folder, 'page.html'), html.replace("'/tmp'", `'${folder}'`));
      const page = await browser.open(`file://${folder}/page.html`);
      await page.waitForFunction(() => document.getElementById('picture').width > 300); // 300: nothing drawn
      await page.click('#save');
      await page.getByText(saved).waitFor();
      assert.equal(readFileSync(join(folder, 'scan1.jpg'))[0], 0xff);
      rmSync(join(folder, 'scan1.jpg'));
      await browser.leave(page);
    }
  } finally {
    rmSync(folder, { recursive: true, force: true });
    await server.end();
  }
});
