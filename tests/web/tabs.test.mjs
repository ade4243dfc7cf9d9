// SPDX-License-Identifier: MIT
//
// The client in tabs of one origin, with the mock server: whose answer it is, with and without Web Locks;
// and previews that are decoded in a worker.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { after, before, test } from 'node:test';
import { WebSocketServer } from 'ws';
import { startMock } from '../../client/mock/mock.js';
import { Browser, skip } from './browser.mjs';

const script = readFileSync(new URL('../../client/deviceclient.global.js', import.meta.url));

let mock;
let browser;
let pages;
let policy = '';
before(async () => {
  if (skip)
    return;
  [mock, browser] = await Promise.all([startMock({ WebSocketServer, port: 0, work: 100, fps: 30 }), Browser.launch()]);
  pages = createServer(({ url }, response) => {
    if (url === '/client.js')
      response.setHeader('Content-Type', 'text/javascript').end(script);
    else
      response.writeHead(200, { 'Content-Type': 'text/html', ...(policy && { 'Content-Security-Policy': policy }) })
          .end(`<canvas id=a></canvas><canvas id=b></canvas><script src=/client.js></script>
            <script src="data:text/javascript,var client = new DeviceClient({ url: '${mock.url}' })"></script>`);
  });
  await once(pages.listen(0, '127.0.0.1'), 'listening');
});
after(async () => {
  if (skip)
    return;
  pages.close();
  await Promise.all([browser.close(), mock.stop()]);
});

const address = (path) => `http://127.0.0.1:${pages.address().port}/${path}`;

/** Removes what pages of an http: origin don't have. */
const withoutLocks = () => Object.defineProperty(navigator, 'locks', { value: undefined });

for (const locks of [true, false]) {
  test(`tabs ${locks ? 'with' : 'without'} Web Locks never get each other’s answers`, { skip }, async () => {
    const [one, two] = await Promise.all([browser.open(address('')), browser.open(address(''))]);
    if (!locks)
      await Promise.all([one, two].map((page) => page.evaluate(withoutLocks)));
    mock.requests.length = 0;
    mock.script('lImageMatch', (image) => ({ a: '10', b: '20', c: '30', d: '40' })[image]);
    const compare = (page, image) => page.evaluate((path) => client.compareFaces(path, 'x'), image);
    assert.deepEqual(await Promise.all([compare(one, 'a'), compare(two, 'b'), compare(one, 'c'), compare(two, 'd')]),
                     [10, 20, 30, 40]);

    await one.evaluate((url) => localStorage.setItem(`device-server-client ${url} bLivingBodyDetect`, Date.now() + 1e9), mock.url);
    assert.equal(await one.evaluate(() => client.call('bLivingBodyDetect')), true, 'the clock was changed');
    mock.script('bStartPlay', 'false', 'true');
    const started = [one, two].map((page) => page.evaluate(() => client.call('bStartPlay')));
    assert.deepEqual((await Promise.all(started)).sort(), [false, true]);

    // A result goes to the tab that sent the latest command, which gives it to the one that asked.
    mock.script('fingerCaptureRawData', '{"score":7,"feature":"AA"}');
    const finger = one.evaluate(() => client.captureFinger());
    while (!mock.requests.some(({ name }) => name === 'fingerCaptureRawData'))
      await two.waitForTimeout(10);
    assert.equal(await two.evaluate(() => client.call('getVersion')), 'V1.0.2');
    assert.equal((await finger).score, 7);

    // A reloaded page does not get what it has asked for before, nor does the other tab.
    mock.script('lImageMatch', { result: '1', delay: 400 }, '2', '3');
    await one.evaluate(() => { client.compareFaces('a', 'b'); });
    while (mock.requests.filter(({ name }) => name === 'lImageMatch').length < 5)
      await two.waitForTimeout(10);
    await one.reload();
    if (!locks)
      await one.evaluate(withoutLocks);
    assert.deepEqual((await Promise.all([compare(one, 'a'), compare(two, 'b')])).sort(), [2, 3]);
    await Promise.all([browser.leave(one), browser.leave(two)]);
  });
}

test('an attempt to connect ends though the server does not answer', { skip }, async () => {
  const page = await browser.open(address(''));
  mock.hang();
  const codes = await page.evaluate(async (url) => {
    const other = new DeviceClient({ url, connectTimeout: 300 });
    const codeOf = (promise) => promise.catch(({ code, phase }) => [code, phase]);
    const ended = await Promise.all([codeOf(other.callWith({ timeout: 100 }, 'getVersion')), codeOf(other.connect())]);
    other.close();
    return ended;
  }, mock.url);
  mock.resume();
  assert.deepEqual(codes, [['TIMED_OUT', 'connection'], ['SERVER_NOT_RUNNING', undefined]]);
  await browser.leave(page);
});

test('previews are decoded in a worker, or in the page where its policy allows no such worker', { skip }, async () => {
  for (const [csp, workers] of [['', 1], ["worker-src 'self'; script-src 'self' data: 'unsafe-eval'", 0]]) {
    policy = csp;
    const page = await browser.open(address(''));
    const counts = await page.evaluate(async () => {
      const previews = ['a', 'b'].map((id) => client.preview(document.getElementById(id), { worker: true }));
      await client.call('bStartPlay');
      while (previews.some(({ drawn }) => drawn < 9)) // the mock has six frames
        await client.once('drawn', { timeout: 10000 });
      return previews.map(({ broken, target }) => [broken, target.width, target.height]);
    });
    assert.deepEqual(counts, [[0, 400, 300], [0, 400, 300]]);
    assert.equal(page.workers().length, workers);
    await browser.leave(page);
  }
});
