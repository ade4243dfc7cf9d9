// SPDX-License-Identifier: MIT
//
// The sample page in Chromium, from file://.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { Browser, skip } from './browser.mjs';
import { startServer } from './server.mjs';

let server;
let browser;
before(async () => {
  if (!skip)
    [server, browser] = await Promise.all([startServer(), Browser.launch()]);
});
after(() => browser && Promise.all([browser.close(), server.end()]));

test('the sample page shows the camera’s picture, also after a restart of the server', { skip }, async () => {
  const page = await browser.open(new URL('../../docs/examples/preview.html', import.meta.url).href);
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
  await browser.leave(page);
});
