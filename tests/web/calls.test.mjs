// SPDX-License-Identifier: MIT
//
// The client against the mock server: what happens to a call when the server does not do its part.
import assert from 'node:assert/strict';
import { after, afterEach, before, test } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';
import WebSocket, { WebSocketServer } from 'ws';
import { DeviceClient, commands } from '../../client/deviceclient.js';
import { startMock } from '../../client/mock/mock.js';

let mock;
before(async () => { mock = await startMock({ WebSocketServer, port: 0, work: 20, fps: 50 }); });
after(() => mock.stop());

let clients = [];
afterEach(() => {
  clients.forEach((client) => client.close());
  clients = [];
  mock.resume();
  mock.scriptAll({});
  mock.requests.length = 0;
});

function page(options) {
  const client = new DeviceClient({ WebSocket, url: mock.url, ...options });
  clients.push(client);
  return client;
}

const asked = () => mock.requests.map(({ text }) => text);

/** Milliseconds until a promise settles, and how: { code, phase } or { value }. */
async function outcome(promise) {
  const start = Date.now();
  const ended = await promise.then((value) => ({ value }), ({ code, phase, result }) => ({ code, phase, result }));
  return { ...ended, milliseconds: Date.now() - start };
}

test('every call ends: answered, too late, aborted, cut off or closed', async () => {
  const jobs = {
    bSaveJPG: [(client, options) => client.callWith(options, 'bSaveJPG', '/tmp', 'a'), true],
    bStartPlay: [(client, options) => client.callWith(options, 'bStartPlay'), true], // to all, may be dropped
    lImageMatch: [(client, options) => client.compareFaces('a', 'b', options), 87], // to all
    fingerCaptureRawData: [async (client, options) => (await client.captureFinger(options)).score, 87],
    bLivingBodyDetectOnline: [(client, options) => client.checkLiveness(options), true], // an event follows
  };
  const cases = [
    // what the server does, the call's options, the error
    [{ delay: 20 }, {}, {}],
    [{ drop: true, event: false }, { timeout: 30 }, { code: 'TIMED_OUT', phase: 'answer' }],
    [{ wrong: true, event: false }, { timeout: 30 }, { code: 'TIMED_OUT', phase: 'answer' }],
    [{ delay: 200 }, { signal: () => AbortSignal.timeout(30) }, { code: 'ABORTED' }],
    [{ drop: true }, { signal: () => AbortSignal.abort() }, { code: 'ABORTED' }],
    [{ close: true }, {}, { code: 'CONNECTION_LOST' }],
    [{ hang: 100 }, { timeout: 30 }, { code: 'TIMED_OUT', phase: 'answer' }],
    [{ drop: true, event: false }, { closes: true }, { code: 'CLOSED' }],
  ];
  const check = async (name, [answer, { signal, closes, ...options }, error]) => {
    const server = await startMock({ WebSocketServer, port: 0, work: 20, answers: { [name]: answer } });
    const client = page({ url: server.url });
    await client.connect();
    const [start, value] = jobs[name];
    const call = start(client, { ...options, signal: signal && signal() });
    if (closes)
      setTimeout(() => client.close(), 20);
    const { milliseconds, result, ...ended } = await outcome(call);
    const what = `${name} ${JSON.stringify([answer, options])}`;
    assert.deepEqual(ended, error.code ? { phase: undefined, ...error } : { value }, what);
    assert.ok(milliseconds < 9000, what);
    await server.stop();
    client.close();
    assert.equal(client.calls.size, 0, what);
  };
  await Promise.all(Object.keys(jobs).flatMap((name) => cases.map((each) => check(name, each))));

  const listeners = [];
  const signal = {
    aborted: false,
    addEventListener: (_, listener) => listeners.push(listener),
    removeEventListener: (_, listener) => listeners.splice(listeners.indexOf(listener), 1),
  };
  await page().callWith({ signal }, 'getVersion');
  assert.deepEqual(listeners, [], 'a signal may outlive many calls');
});

test('a server that takes the connection and never answers: the time runs from the call on', async () => {
  mock.hang();
  const client = page({ connectTimeout: 500 });
  assert.equal((await outcome(client.callWith({ timeout: 30 }, 'getVersion'))).phase, 'connection');
  assert.equal((await outcome(client.callWith({ timeout: 30 }, 'bStartPlay'))).phase, 'connection');
  assert.equal((await outcome(client.callWith({ signal: AbortSignal.timeout(10) }, 'getVersion'))).code, 'ABORTED');
  const { code, milliseconds } = await outcome(page({ connectTimeout: 60 }).call('getVersion'));
  assert.equal(code, 'SERVER_NOT_RUNNING');
  assert.ok(milliseconds < 9000);
  mock.resume();
  assert.equal(await page().call('getVersion'), 'V1.0.2');
  assert.deepEqual(asked(), ['getVersion()'], 'what has ended is not sent later');
});

test('a call connects as soon as the server is back, whatever the next attempt waits for', async () => {
  const client = page({ retryDelays: [60000] });
  await client.connect();
  await Promise.all([client.once('close'), mock.stop()]);
  assert.equal((await outcome(client.call('getVersion'))).code, 'SERVER_NOT_RUNNING');
  await mock.start();
  assert.equal(client.state, 'waiting');
  assert.equal(await client.call('getVersion'), 'V1.0.2');
});

test('two pages never get each other’s answers', async () => {
  const [one, two] = [page(), page()];
  await Promise.all([one.connect(), two.connect()]);
  const heard = [];
  two.on('lImageMatch', (score) => heard.push(score));
  const results = { a: '10', b: '20', c: '30' };
  mock.script('lImageMatch', (image) => results[image]);
  const scores = await Promise.all([[one, 'a'], [two, 'b'], [one, 'c']].map(([each, image]) => each.compareFaces(image, 'x')));
  assert.deepEqual(scores, [10, 20, 30]);
  await two.call('getVersion'); // answered after the last broadcast
  assert.deepEqual(heard, [10, 30]);
});

test('an answer that a page did not wait for is not that of the next call', async () => {
  for (const [name, args, first, second] of [
    ['lImageMatch', ['a', 'b'], '1', '2'], ['fingerCaptureRawData', [1], '{"score":1}', '{"score":2}'],
    ['WReadSFZCardBas', [], '{"n":1}', '{"n":2}'],
  ]) {
    mock.script(name, { result: first, delay: 150 }, second);
    const client = page();
    const late = [];
    client.on('late', ({ result }) => late.push(JSON.stringify(result)));
    assert.equal((await outcome(client.callWith({ timeout: 30 }, name, ...args))).code, 'TIMED_OUT');
    const waits = await outcome(client.callWith({ timeout: 30 }, name, ...args));
    assert.equal(waits.code, 'TIMED_OUT', name);
    mock.script(name, second);
    const again = JSON.stringify(await client.call(name, ...args));
    assert.equal(again, second, name);
    assert.ok(late.includes(first), name);
    client.close();
  }
  // It is not waited for longer than the command can take, nor from a server that was started again.
  const { timeout } = commands.lImageMatch;
  for (const [milliseconds, restart] of [[200, false], [60000, true]]) {
    commands.lImageMatch.timeout = milliseconds;
    const client = page();
    mock.script('lImageMatch', { drop: true }, '2');
    assert.equal((await outcome(client.compareFaces('a', 'b', { timeout: 50 }))).code, 'TIMED_OUT');
    if (restart) {
      await Promise.all([client.once('close'), mock.stop()]);
      await client.connect().catch(() => {});
      await mock.start();
    }
    assert.equal(await client.compareFaces('a', 'b', { timeout: 5000 }), 2);
  }
  commands.lImageMatch.timeout = timeout;
  // of a page that was closed meanwhile, or lost its connection
  for (const [leave, code] of [[(client) => client.close(), 'CLOSED'], [() => mock.drop(), 'CONNECTION_LOST']]) {
    mock.requests.length = 0;
    mock.script('lImageMatch', { result: '1', delay: 150 }, '2');
    const gone = page();
    await gone.connect();
    const call = outcome(gone.compareFaces('a', 'b'));
    while (!asked().includes('lImageMatch(a,b)'))
      await sleep(5);
    leave(gone);
    assert.equal((await call).code, code);
    assert.equal(await page().compareFaces('a', 'b'), 2);
  }
});

test('jobs: started, awaited, failed', async () => {
  const client = page();
  const place = { x: 1, y: 2, width: 3 };
  const signature = { status: 'error', code: 12, message: 'encrypted', pdfpath: '/b.pdf' };
  const scores = [];
  client.on('AfterbImageMatchOnline', (score) => scores.push(score)); // an event all the same
  const withId = (answer) => (data) => ({ event: `${answer},${/id=[^,]*/.exec(data)}` });
  const cases = [
    // script, job, value or code of the error
    [{ lImageMatch: '87' }, () => client.compareFaces('a', 'b'), 87],
    [{ lImageMatch: '-3' }, () => client.compareFaces('a', 'b'), 'FAILED'],
    [{ bImageMatchOnline: { event: '71' } }, () => client.compareWithCamera('a'), 71],
    [{ bImageMatchOnline: 'false' }, () => client.compareWithCamera('a'), 'FAILED'],
    [{ bImageMatchOnline: { event: false } }, () => client.compareWithCamera('a', { timeout: 50 }), 'TIMED_OUT'],
    [{ bFaceFeatureGetOnline: { event: '' } }, () => client.faceFeature(), 'FAILED'],
    [{ bLivingBodyDetectOnline: { event: 'false' } }, () => client.checkLiveness(), false],
    [{ AutoLivingBody: { event: '{"result":1}' } }, async () => (await client.watchLiveness()).result, 1],
    [{ AutoLivingBody: { event: false } }, () => client.watchLiveness({ signal: AbortSignal.timeout(20) }), 'ABORTED'],
    [{ fingerCaptureRawData: '{"score":-1,"msg":"none"}' }, () => client.captureFinger(), 'FAILED'],
    [{ readIDMsg: '{"code":"0","name":"N"}' }, async () => (await client.readIdCard()).name, 'N'],
    [{ readIDMsg: '{"code":"2","message":"no card"}' }, () => client.readIdCard(), 'FAILED'],
    [{ GetBankCardInfo: '' }, () => client.readBankCard(), 'FAILED'],
    [{}, () => client.recordUntil(20, { file: '/tmp/r.mp4' }), '/tmp/r.mp4'],
    [{}, () => client.recordUntil(AbortSignal.timeout(20), { file: '/tmp/r.mp4' }), '/tmp/r.mp4'],
    [{}, () => client.recordUntil(Promise.reject(Object.assign(new Error(), { code: 'MINE' })), { file: 'r' }), 'MINE'],
    [{ bStartRec: 'false' }, () => client.recordUntil(20, { file: 'r' }), 'FAILED'],
    [{ bStartRec: {} }, async () => {
      const recorded = client.recordUntil(5000, { file: 'r' });
      setTimeout(() => mock.drop(), 20);
      return recorded;
    }, 'CONNECTION_LOST'],
    [{}, async () => (await client.sign('/a.pdf', place)).signedpath, '/a-signed.pdf'],
    [{ DoGWQ_StartSign: { event: JSON.stringify({ ...signature, status: 'cancelled', pdfpath: '/a.pdf' }) } },
     async () => (await client.sign('/a.pdf', place)).status, 'cancelled'],
    [{ DoGWQ_StartSign: { event: JSON.stringify(signature) } }, () => client.sign('/b.pdf', place), 'FAILED'],
    [{ DoGWQ_StartSign: { event: JSON.stringify(signature) } },
     () => client.sign('/not-b.pdf', { ...place, timeout: 60 }), 'TIMED_OUT'],
    [{}, async () => (await client.askCustomer({ name: 'A, B', ask: 'phone' })).phone, '13800000000'],
    [{ DoGWQ_StartEvaluator: withId('value=5,text=a%2Cb,c') }, async () => (await client.rateService({})).text, 'a,b,c'],
    [{ DoGWQ_StartEvaluator: { event: 'value=1,id=another' } },
     () => client.rateService({ id: 'mine' }, { timeout: 60 }), 'TIMED_OUT'],
    [{}, async () => {
      const shots = [];
      for await (const shot of client.scans('/tmp', 'p'))
        if (shots.push(shot) === 3)
          return shots.join();
      return '';
    }, '1,2,3'],
  ];
  for (const [index, [answers, job, expected]] of cases.entries()) {
    mock.scriptAll(answers);
    await client.connect();
    assert.equal(await job().catch(({ code }) => code), expected, `case ${index}`);
  }
  await client.call('getVersion'); // all before it has arrived
  const texts = asked();
  assert.deepEqual(scores, [71]);
  for (const text of ['CloseLivingBody()', 'iAutoScan(1,/tmp,p)', 'iAutoScan(0,/tmp,p)', 'DoGWQ_StartSign(/a.pdf,,1.1.2.3,0,120)'])
    assert.ok(texts.includes(text), text);
  assert.ok(texts.some((text) => text.startsWith('DoGWQ_StartInfo(name=A%2C B,ask=phone,id=')));
  assert.equal(texts.filter((text) => text === 'bStopRec()').length, 3, 'not without a connection');
});

test('once and frames', async () => {
  const client = page();
  await client.call('bStartPlay');
  const frames = [];
  for await (const frame of client.frames({ timeout: 2000 })) {
    frames.push(frame.slice(0, 4));
    if (frames.length === 3)
      break;
  }
  assert.deepEqual(frames, ['/9j/', '/9j/', '/9j/']);
  const second = client.once('vSetCapturePin', { accept: (pressed) => pressed });
  mock.push('vSetCapturePin', 'false');
  mock.push('vSetCapturePin');
  assert.equal(await second, true);
  await client.call('bStopPlay');
  assert.equal((await outcome(client.once('frame', { timeout: 50 }))).code, 'TIMED_OUT');
  assert.equal((await outcome(client.frames({ signal: AbortSignal.timeout(10) }).next())).code, 'ABORTED');
  const rest = client.frames().next();
  client.close();
  assert.deepEqual(await rest, { done: true, value: undefined });
  assert.equal(client.listeners.get('frame').size, 0);
});

test('the mock does as the server where that is odd', async () => {
  const [client, other] = [page(), page()];
  await Promise.all([client.call('bStartPlay'), other.call('getVersion')]);
  const heard = [];
  const both = [];
  other.on('message', (text) => text.startsWith('/9j/') || heard.push(text));
  client.on('lImageMatch', (score) => both.push(score));
  mock.script('lImageMatch', (image) => ({ a: '1', c: '2', e: '3' })[image]);
  for (const text of ['lImageMatch(a,b)', 'lImageMatch(c,d)', 'lImageMatch(e,f)', 'lImageMatch(a)', 'getversion()',
    '#relayed', 'bStopRec()', 'vSetPreviewEnable(0)', 'bGetPreviewEnable()', 'vSetPreviewEnable(1)', '@more'])
    await other.send(text);
  while (heard.length < 9 || both.length < 2)
    await sleep(5);
  assert.deepEqual(heard, ['BeginlImageMatch0EndlImageMatch', 'relayed', 'BeginbStopRecfalseEndbStopRec',
    'BeginvSetPreviewEnabletrueEndvSetPreviewEnable', 'BeginbGetPreviewEnablefalseEndbGetPreviewEnable',
    'BeginvSetPreviewEnabletrueEndvSetPreviewEnable', '', 'BeginlImageMatch1EndlImageMatch',
    'BeginlImageMatch3EndlImageMatch']);
  assert.deepEqual(both, [1, 3]);
  const stopped = other.once('bStopPlay', { timeout: 5000 });
  client.close();
  assert.equal(await stopped, true);
});
