// SPDX-License-Identifier: MIT
//
// The sample page in Chromium, from file://.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { chromium } from 'playwright-core';
import { startServer } from './server.mjs';

let server;
let browser;
before(async () => {
  server = await startServer();
  browser = await chromium.launch({ executablePath: '/usr/bin/chromium', args: ['--no-sandbox', '--disable-gpu'] });
});
after(async () => {
  if (browser)
    await browser.close();
  await server.end();
});

test('the sample page shows the camera’s picture, also after the server was restarted', async () => {
  const page = await browser.newPage();
  const faults = [];
  page.on('pageerror', (error) => faults.push(error.message));
  await page.goto(new URL('../../docs/examples/preview.html', import.meta.url).href);
  const state = page.locator('#state');
  const drawnAt = () => page.evaluate(`new Promise((resolve) => client.on('drawn', () => {
    const { width, height } = document.getElementById('picture');
    const { data } = document.getElementById('picture').getContext('2d').getImageData(0, 0, width, height);
    resolve({ width, height, colors: new Set(new Uint32Array(data.buffer)).size });
  }))`);
  for (const message of ['the connection to the device server was lost', '']) {
    await state.filter({ hasText: 'live' }).waitFor();
    const { width, height, colors } = await drawnAt();
    assert.deepEqual([width, height], [800, 600]);
    assert.ok(colors > 100, 'a picture, not an empty canvas');
    if (message) {
      await server.kill();
      await state.filter({ hasText: /lost|not running/ }).waitFor();
      await server.start();
    }
  }
  assert.deepEqual(faults, []);
  await page.close();
});
