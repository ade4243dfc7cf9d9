// SPDX-License-Identifier: MIT
//
// The example of every command in docs/commands.json, sent by the client to the real server.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import WebSocket from 'ws';
import { DeviceClient } from '../../client/deviceclient.js';
import { startServer } from './server.mjs';

const { commands } = JSON.parse(readFileSync(new URL('../../docs/commands.json', import.meta.url)));

// They would print, speak, open windows or take long.
const skipped = ['bPrint', 'bPrintImage', 'bPrintImageFile', 'bPlayVoice', 'OpenFile', 'bDispPath',
  'bLivingBodyDetect'];

const types = { boolean: 'boolean', number: 'number', text: 'string', empty: 'undefined', none: 'undefined' };

// A scene takes half a second to draw, and ten commands start a camera.
const photo = `image:${fileURLToPath(new URL('../../portable/samples/cards/lisi.jpg', import.meta.url))}`;
const settings = ['[cameras]', ...[1, 2, 3, 4, 5, 6, 8, 9].map((camera) => `${camera}=${photo}`),
  `dual=${photo}|${photo}`].join('\n');

let server;
before(async () => { server = await startServer({ settings }); });
after(() => server.end());

function check({ name, reply }, result) {
  if (reply.kind === 'list' || reply.kind === 'pair')
    assert.ok(Array.isArray(result), name);
  else if (reply.kind === 'json')
    assert.equal(typeof result, 'object', name);
  else
    assert.equal(typeof result, types[reply.kind], name);
  if (reply.always)
    assert.equal(String(result), reply.example, name);
}

test('every command answers its example with the documented type', async () => {
  const client = new DeviceClient({ WebSocket });
  try {
    await client.call('bStartPlay');
    for (const command of commands) {
      if (skipped.includes(command.name) || command.family === 'companion') // no companions here
        continue;
      const values = command.arguments.map((field) => field.example.replace('/tmp', server.folder));
      check(command, await client.call(command.name, ...values));
    }
  } finally {
    client.close();
  }
});
