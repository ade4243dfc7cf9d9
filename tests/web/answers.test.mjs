// SPDX-License-Identifier: MIT
//
// The examples of docs/commands.json and docs/protocol-intro.md, sent to the real server: each is answered as
// it says there.
import assert from 'node:assert/strict';
import { chmodSync, copyFileSync, mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import WebSocket from 'ws';
import { DeviceClient } from '../../client/deviceclient.js';
import { Server } from './server.mjs';

const path = (relative) => fileURLToPath(new URL(relative, import.meta.url));
const { commands, events } = JSON.parse(readFileSync(path('../../docs/commands.json')));
const commandOf = (name) => commands.find((command) => command.name === name);

const types = { boolean: 'boolean', number: 'number', text: 'string', empty: 'undefined', none: 'undefined' };

// A scene takes half a second to draw: only the first camera has it, whose codes are read.
const photo = path('../../portable/samples/cards/lisi.jpg');
const settings = ['[cameras]', '1=scene', ...[2, 3, 4, 5, 6, 8, 9].map((camera) => `${camera}=image:${photo}`),
  `dual=image:${photo}|image:${photo}`, '[cards]', 'idcard=zhangsan.json'].join('\n');

const uploads = http.createServer((request, response) => request.resume().on('end', () => response.end('ok')));
const companions = ['SOUTHINTERFACE_ELECSIGNSERVER', 'SOUTHINTERFACE_BROWSER']
    .map((name) => [name, net.createServer((socket) => socket.resume().on('error', () => {}))]);
let server;
let client;

/** What the examples need besides the server. Nothing is opened, printed or spoken. */
function surroundings(folder) {
  mkdirSync(join(folder, 'bin'));
  for (const program of ['xdg-open', 'espeak-ng', 'spd-say']) {
    writeFileSync(join(folder, 'bin', program), '#!/bin/sh\n');
    chmodSync(join(folder, 'bin', program), 0o755);
  }
  for (const name of ['face1.jpg', 'face2.jpg'])
    copyFileSync(photo, join(folder, name));
  for (const [name, companion] of companions)
    companion.listen(join(folder, name));
  return { TMPDIR: folder, PATH: `${join(folder, 'bin')}:${process.env.PATH}`, CUPS_SERVER: '127.0.0.1:1' };
}

before(async () => {
  server = new Server({ settings, environment: surroundings });
  await new Promise((resolve) => { uploads.listen(0, '127.0.0.1', resolve); });
  client = new DeviceClient({ WebSocket });
});
after(async () => {
  client.close();
  uploads.close();
  for (const [, companion] of companions)
    companion.close();
  await server.end();
});

/** Arguments of an example, in the folder and with the port of this test. */
const argumentsOf = ({ arguments: all }) => all.map(({ example }) =>
  example.replaceAll('/tmp', server.folder).replaceAll('8080', uploads.address().port));

/** Sends an example after those that it needs; the result, and the text between Begin and End. */
async function carryOut(command, raws = new Map()) {
  for (const needed of command.needs ?? [])
    await carryOut(commandOf(needed), raws);
  const names = [command.name, ...(command.reply.otherFrames ?? [])];
  const forget = client.on('message', (text) => {
    const name = names.find((each) => text.startsWith(`Begin${each}`) && text.endsWith(`End${each}`));
    if (name)
      raws.set(command.name, text.slice(5 + name.length, -3 - name.length));
  });
  try {
    const result = await client.call(command.name, ...argumentsOf(command));
    return { result, raw: raws.get(command.name) };
  } finally {
    forget();
  }
}

/** Whether an answer is what the example shows, which leaves out "..." and members of JSON. */
function shows(example, actual) {
  if (typeof example === 'string') {
    const parts = example.split('...').map((part) => part.replace(/[.*+?^${}()|[\]\\]/g, '\\$&'));
    return typeof actual === 'string' && new RegExp(`^${parts.join('[^]*')}$`).test(actual);
  }
  if (example && typeof example === 'object')
    return Object.entries(example).every(([key, value]) => actual !== null && shows(value, actual[key]));
  return example === actual;
}

function check({ name, reply }, { result, raw }) {
  const { kind, example, pattern } = reply;
  if (kind === 'list' || kind === 'pair')
    assert.ok(Array.isArray(result), name);
  else
    assert.equal(typeof result, kind === 'json' ? 'object' : types[kind], name);
  if (kind === 'none')
    return;
  const holds = pattern ? new RegExp(`^(${pattern})$`).test(raw)
    : kind === 'json' ? shows(JSON.parse(example), JSON.parse(raw)) : shows(example, raw);
  assert.ok(holds, `${name}: ${raw.slice(0, 300)} instead of ${pattern ?? example}`);
}

for (const family of new Set(commands.map((command) => command.family))) {
  test(`examples of ${family}`, async () => {
    await server.kill(); // and with it the settings of other examples
    await server.start();
    for (const command of commands.filter((each) => each.family === family))
      check(command, await carryOut(command));
  });
}

test('pushed texts are of the kind that their examples show', async () => {
  await server.kill();
  await server.start();
  const image = join(server.folder, 'face1.jpg');
  const relay = (id) => client.send(`#${events.find((event) => event.id === id).form}`);
  // vSetCapturePin and bStartPlay need a button, and a library with a preview of its own.
  const causes = {
    frame: () => client.call('bStartPlay'),
    iAutoScan: () => client.call('iAutoScan', 1, server.folder, 'auto'),
    bStopPlay: async () => {
      const other = new DeviceClient({ WebSocket });
      await other.connect();
      other.close();
    },
    AfterbImageMatchOnline: () => client.call('bStartPlay2').then(() => client.call('bImageMatchOnline', image, 2, 0, 0)),
    AfterbFaceFeatureGetOnline: () => client.call('bFaceFeatureGetOnline', 2, 0),
    AfterbLivingBodyDetectOnline: () => client.call('bLivingBodyDetectOnline', 2, 0),
    AfterbLivingBodyDetectEvent2: () => client.call('AutoLivingBody'),
    AfterDoGWQ_StartInfo: relay,
    AfterDoGWQ_StartEvaluator: relay,
  };
  for (const [id, cause] of Object.entries(causes)) {
    const { kind, example = '/9j/...' } = events.find((event) => event.id === id);
    const heard = client.once(id, { timeout: 40000 });
    await cause(id);
    const value = await heard;
    if (kind === 'json')
      assert.deepEqual(Object.keys(value).sort(), Object.keys(JSON.parse(example)).sort(), id);
    else
      assert.equal(typeof value, types[kind], id);
    if (cause === relay || id === 'frame')
      assert.ok(shows(example, value), id);
  }
});

test('examples of the introduction', async () => {
  for (const page of ['', '.zh']) {
    const examples = [...readFileSync(path(`../../docs/protocol-intro${page}.md`), 'utf8').matchAll(/^ {4}(\w+\(.*\)) {2,}(Begin.*)$/gm)];
    assert.ok(examples.length > 2);
    for (const [, request, answer] of examples) {
      const [, name] = /Begin(\w+?)(?:true|\/|End)/.exec(answer);
      const heard = client.once('message', { timeout: 30000, accept: (text) => text.startsWith(`Begin${name}`) });
      client.send(request);
      assert.equal(await heard, answer);
    }
  }
});
