// SPDX-License-Identifier: MIT
//
// The JavaScript client against the real server.
import assert from 'node:assert/strict';
import { existsSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { after, afterEach, before, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import WebSocket from 'ws';
import { DeviceClient, commandText, parseAnswer } from '../../client/deviceclient.js';
import { startServer } from './server.mjs';

let server;
before(async () => { server = await startServer(); });
after(() => server.end());

let clients = [];
afterEach(() => {
  for (const client of clients)
    client.close();
  clients = [];
});

function page(options) {
  const client = new DeviceClient({ WebSocket, ...options });
  clients.push(client);
  return client;
}

/** A promise of the next event's value. */
function next(client, event, milliseconds = 15000) {
  return new Promise((resolve, reject) => {
    const timer = setTimeout(() => reject(new Error(`no event ${event}`)), milliseconds);
    const end = client.on(event, (value) => {
      end();
      clearTimeout(timer);
      resolve(value);
    });
  });
}

const code = (value) => ({ code: value });

test('a result has the type of its command', async () => {
  const client = page();
  assert.equal(await client.call('getVersion'), 'V1.0.2');
  assert.equal(await client.call('vSetDPI', 200, 300), true);
  assert.deepEqual(await client.call('vGetDPI'), [200, 300]);
  assert.equal(await client.call('setResolutionXY', 1280, 720), true);
  assert.equal(await client.call('iGetResolutionX', 1), 1280);
  const sizes = await client.call('getAllResolutions', 1);
  assert.ok(sizes.some(({ width, height }) => width === 1280 && height === 720));
  assert.equal(await client.call('vSetPreviewEnable', true), true);
  assert.equal(await client.call('vZoomIn'), undefined);
  assert.equal((await client.call('readIDMsg')).code, '0');
  assert.deepEqual(await client.call('sGetAllFormatFiles', server.folder, 'png'), []);
  assert.deepEqual(await client.call('sGetAllFormatFiles', server.folder, 'ini'), ['devices.ini']);
  assert.equal((await client.call('GetDeviceStatus')).length, 2);
  assert.equal(await client.callWith({ raw: true }, 'vGetDPI'), '(200,300)');
});

test('calls of one command are answered in order', async () => {
  const client = page();
  const paths = Array.from({ length: 60 }, (_, i) => (i % 3 ? server.folder : '/nowhere'));
  const there = await Promise.all(paths.map((path) => client.call('bDirIsExist', path)));
  assert.deepEqual(there, paths.map((path) => path === server.folder));
});

test('requests that would cancel each other are sent one at a time', async () => {
  const client = page();
  const picture = join(server.folder, 'fingers/finger1.png');
  const scores = await Promise.all([1, 2, 3, 4].map(() => client.call('lImageMatch', picture, picture)));
  assert.ok(scores.every((score) => score < 0), 'no face in it');
});

test('what the protocol can’t carry is rejected before it is sent', async () => {
  const client = page();
  const messages = [];
  client.on('message', (text) => messages.push(text));
  for (const [name, ...args] of [
    ['bSaveJPG', '/tmp', 'a,b'], ['bSaveJPG', '/tmp'], ['bSaveJPG', '/tmp', 'a', 'b'], ['bStopPlay', 1],
    ['bDirIsExist', 'a\0b'], ['bDirIsExist', null], ['bDirIsExist', {}], ['vSetRotate', 'ninety'],
    ['vSetRotate', 1.5], ['vSetRotate', NaN], ['vSetPreviewEnable', 2], ['lFingerMatch', 0, 'AA', 1],
  ])
    await assert.rejects(client.call(name, ...args), code('BAD_ARGUMENT'), `${name} ${args}`);
  await assert.rejects(client.call('bstartplay'), { code: 'UNKNOWN_COMMAND', message: /bStartPlay/ });
  await assert.rejects(client.call('constructor'), code('UNKNOWN_COMMAND'));
  assert.deepEqual(messages, []);
  assert.equal(client.state, 'closed');

  const file = join(server.folder, 'a, (b).txt');
  writeFileSync(file, '');
  assert.equal(await client.call('bFileIsExist', file), true);
  assert.equal(commandText('sUpLoadImage', ['a', 'b', undefined, undefined, true]), 'sUpLoadImage(a,b,,,1)');
  assert.equal(commandText('ReadCard', ['', undefined]), 'ReadCard()');
});

test('answers are parsed where names and results look alike', () => {
  for (const [text, name, result] of [
    ['BeginbSavePDFEndtrueEndbSavePDFEnd', 'bSavePDFEnd', 'true'],
    ['BeginbSavePDFEndEndbSavePDFEnd', 'bSavePDFEnd', ''],
    ['BegingetVersionEndgetVersionEndgetVersion', 'getVersion', 'EndgetVersion'],
    ['BeginbStartPlay2trueEndbStartPlay2', 'bStartPlay2', 'true'],
    ['BeginanyEventxEndanyEvent', 'anyEvent', 'x'],
  ])
    assert.deepEqual(parseAnswer(text), { name, result });
  for (const text of ['', 'Begin', 'BeginEnd', 'BeginaEndb', 'xBeginaEnda'])
    assert.equal(parseAnswer(text), null, text);
});

/** A server that sends nothing but the answers a test asks for, and those of the client's own commands. */
class SilentSocket {
  constructor() {
    SilentSocket.last = this;
    queueMicrotask(() => this.onopen());
  }

  send(text) {
    if (text === 'bGetPreviewEnable()')
      this.answer('bGetPreviewEnable', 'true');
  }

  close() {}

  answer(name, result) { this.onmessage({ data: `Begin${name}${result}End${name}` }); }
}

test('a call without an answer times out, and its late answer goes to no other call', async () => {
  const client = page({ WebSocket: SilentSocket });
  await assert.rejects(client.callWith({ raw: true, timeout: 10 }, 'noSuchCommand'), code('TIMED_OUT'));
  await assert.rejects(client.callWith({ timeout: 10 }, 'WReadCardBasEx'), code('TIMED_OUT'));
  const late = next(client, 'late');
  const again = client.call('WReadCardBasEx');
  SilentSocket.last.answer('WReadCardBasEx', '{"lRet":1}');
  SilentSocket.last.answer('WReadCardBasEx', '{"lRet":2}');
  assert.deepEqual(await late, { name: 'WReadCardBasEx', result: { lRet: 1 } });
  assert.deepEqual(await again, { lRet: 2 });
});

test('a missing answer affects only its own call', async () => {
  const client = page({ WebSocket: SilentSocket });
  await assert.rejects(client.callWith({ timeout: 10 }, 'bStartPlay'), code('TIMED_OUT'));
  const again = client.callWith({ timeout: Infinity }, 'bStartPlay');
  await sleep(10); // timers that overflow are over after 1 ms
  SilentSocket.last.answer('bStartPlay', 'true');
  assert.equal(await again, true);

  const odd = next(client, 'toString'); // a page may have any text relayed
  SilentSocket.last.answer('toString', 'x');
  assert.equal(await odd, 'x');
});

test('calls of commands without an answer resolve at once', async () => {
  const client = page();
  assert.equal(await client.call('iAutoScan', 0, server.folder, 'auto'), undefined);
  assert.equal(await client.call('vSetCapturePin'), undefined);
});

test('pushed texts become events', async () => {
  const client = page();
  const other = page();
  await other.connect();
  assert.equal(await client.call('bStartPlay'), true);
  const bytes = Buffer.from(await next(client, 'frame'), 'base64');
  assert.deepEqual([...bytes.subarray(0, 3)], [0xff, 0xd8, 0xff]);

  if (existsSync(join(server.folder, 'models'))) { // they are fetched, which needs a network
    const score = next(client, 'AfterbImageMatchOnline');
    assert.equal(await client.call('bImageMatchOnline', '/nowhere.jpg', 1, 0, 0), true);
    assert.ok(await score < 0);
  }

  for (const text of ['{"from": "another page"}', 'BeginclosexEndclose']) {
    const relayed = next(client, 'text');
    await other.send(`#${text}`);
    assert.equal(await relayed, text);
  }

  const stopped = next(client, 'bStopPlay'); // by the server, for a page has left
  other.close();
  assert.equal(await stopped, true);
});

test('the client reports a missing server, retries and reconnects', async () => {
  const client = page({ retryDelays: [100, 200] });
  await client.connect();
  const lost = next(client, 'close');
  const call = assert.rejects(client.call('bLivingBodyDetect'), code('CONNECTION_LOST'));
  await server.kill();
  await call;
  assert.equal((await lost).code, 'CONNECTION_LOST');

  const failed = await next(client, 'close');
  assert.equal(failed.code, 'SERVER_NOT_RUNNING');
  assert.equal(failed.retryIn, 200);
  await assert.rejects(page().call('getVersion'), code('SERVER_NOT_RUNNING'));
  await assert.rejects(page({ url: 'no address' }).connect(), code('BAD_ARGUMENT'));
  await assert.rejects(page({ retryDelays: [] }).connect(), code('SERVER_NOT_RUNNING'));

  const back = next(client, 'open');
  await server.start();
  await back;
  assert.equal(await client.call('getVersion'), 'V1.0.2');
});

test('a closed client rejects pending calls and does not reconnect', async () => {
  const client = page({ retryDelays: [1] });
  await client.connect();
  const calls = ['bLivingBodyDetect', 'fingerCaptureRawData', 'fingerCaptureRawData']
      .map((name) => assert.rejects(client.call(name), code('CLOSED')));
  const opened = [];
  client.on('open', () => opened.push('again'));
  client.close();
  await Promise.all(calls);
  for (let i = 0; i < 3; i++)
    await page().call('getVersion'); // time enough for the client to connect again
  assert.deepEqual(opened, []);
  assert.equal(await client.call('getVersion'), 'V1.0.2', 'a call opens it again');
});
