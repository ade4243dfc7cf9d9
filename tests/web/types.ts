// SPDX-License-Identifier: MIT
//
// Compiled, never run: what pages in TypeScript rely on, and what must be refused.
import '../../client/deviceclient.global.js';
import { DeviceClient, CallTimeoutError } from '../../client/deviceclient.js';

export async function page(client: DeviceClient, canvas: HTMLCanvasElement) {
  const saved: boolean = await client.call('bSaveJPG', '/tmp', 'scan1');
  const width: number = await client.call('iGetResolutionX', 1);
  const [x, y]: [number, number] = await client.call('vGetDPI');
  const sizes: { width: number; height: number }[] = await client.call('getAllResolutions', 1);
  const names: string[] = await client.call('sGetAllFormatFiles', '/tmp', 'jpg');
  const version: string = await client.callWith({ raw: true }, 'getVersion');
  await client.callWith({ timeout: 1000 }, 'lFingerMatch', 0, 'AA', 2, 'BB', 'CC');
  client.on('iAutoScan', (shot: number) => shot + width + x + y);
  client.on('close', (error) => error instanceof CallTimeoutError || error.retryIn);
  client.on('text', (text, json) => [text, json]);
  client.preview(canvas).stop();
  // @ts-expect-error: an argument is missing
  await client.call('bSaveJPG', '/tmp');
  // @ts-expect-error: no such command
  await client.call('bSaveJPEG', '/tmp', 'scan1');
  // @ts-expect-error: its result is a boolean
  const wrong: number = await client.call('bStopPlay');
  // @ts-expect-error: no such event
  client.on('clsoe', () => {});
  // @ts-expect-error: its value is a number
  client.on('iAutoScan', (shot: string) => shot);
  const card = await client.readIdCard({ signal: new AbortController().signal });
  const named: [string | undefined, string | undefined] = [card.name, (await client.readBankCard()).expiry];
  // @ts-expect-error: a maker's device library may answer with a text
  (await client.call('readIDMsg')).name;
  const lost: { retryIn?: number } = await client.once('close', { accept: (error) => error.code === 'CONNECTION_LOST' });
  for await (const frame of client.frames())
    client.off('frame', (base64) => base64 === frame);
  const score: number = await client.eventAfter('AfterbImageMatchOnline', { seconds: 5 }, 'bImageMatchOnline', 'a', 1, 0, 0);
  const signed: string | undefined = (await client.sign('a.pdf', { x: 1, y: 2, width: 3 })).signedpath;
  const script = new globalThis.DeviceClient({ timeout: 1000 });
  const given: boolean = await script.call('bStartPlay') || script instanceof globalThis.DeviceClient.DeviceError;
  return { named, lost, score, signed, given, saved, sizes, names, version, wrong };
}
