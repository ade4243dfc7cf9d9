// SPDX-License-Identifier: MIT
//
// The example of every command in docs/commands.json, sent by the client to the real server.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { after, before, test } from 'node:test';
import WebSocket from 'ws';
import { DeviceClient } from '../../client/deviceclient.js';
import { startServer } from './server.mjs';

const { commands } = JSON.parse(readFileSync(new URL('../../docs/commands.json', import.meta.url)));

// They would print, speak, open windows or take long.
const skipped = ['bPrint', 'bPrintImage', 'bPrintImageFile', 'bPlayVoice', 'OpenFile', 'bDispPath',
  'bLivingBodyDetect'];

const types = { boolean: 'boolean', number: 'number', text: 'string', empty: 'undefined', none: 'undefined' };

let server;
before(async () => { server = await startServer(); });
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
