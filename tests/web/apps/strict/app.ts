// SPDX-License-Identifier: MIT
//
// A program for Node in strict TypeScript, without the library "dom".
import { DeviceClient, FailedError } from 'device-server-client';
import { commands } from 'device-server-client/commands.js';
import { startMock } from 'device-server-client/mock';
// @ts-expect-error: ws has no types here
import WebSocket from 'ws';

declare const console: { log(text: string): void };

declare module 'device-server-client' {
  interface CustomEvents { greeting: string }
}

const mock = await startMock({ port: 0, work: 10, answers: { readIDMsg: '{"code":"2","message":"no card"}', lImageMatch: '87' } });
const client = new DeviceClient({ url: mock.url, WebSocket });
const score: number = await client.compareFaces('/a.jpg', '/b.jpg');
const why = await client.readIdCard().catch((error: unknown) => (error instanceof FailedError ? error.message : String(error)));
const greeting = client.once('greeting', { timeout: 5000 });
await client.send('#BegingreetinghelloEndgreeting');
console.log([score, why, await greeting, commands.bStartPlay.reply].join(' '));
client.close();
await mock.stop();
