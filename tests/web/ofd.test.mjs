// SPDX-License-Identifier: MIT
//
// Documents in OFD, opened by a viewer that isn't ours: ofd.js, in Chromium. The lock file leaves out
// what its package depends on, since the bundle that is loaded here needs none of it.
import assert from 'node:assert/strict';
import { existsSync, readFileSync } from 'node:fs';
import { once } from 'node:events';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { WebSocket } from 'ws';
import { Browser, skip } from './browser.mjs';
import { startServer } from './server.mjs';

const viewer = fileURLToPath(new URL('node_modules/ofd.js/lib/ofd.umd.min.js', import.meta.url));
const missing = skip || (existsSync(viewer) ? false : 'ofd.js is not installed');

let server;
let browser;
before(async () => {
  if (!missing)
    [server, browser] = await Promise.all([startServer(), Browser.launch()]);
});
after(() => Promise.all([server && server.end(), browser && browser.close()]));

/** Sends commands one after the other; each has to succeed. */
async function send(...commands) {
  const socket = new WebSocket('ws://127.0.0.1:1818');
  await once(socket, 'open');
  for (const command of commands) {
    const name = command.split('(')[0];
    const answered = new Promise((resolve) => {
      socket.on('message', (bytes) => bytes.toString().startsWith(`Begin${name}`) && resolve(bytes.toString()));
    });
    socket.send(command);
    assert.equal(await answered, `Begin${name}trueEnd${name}`);
  }
  socket.close();
}

/** In the browser: opens the document. For each page's picture: its size, how colored, how bilevel, and its difference from the photo. */
async function inspect({ ofd, photo }) {
  const bytes = (base64) => Uint8Array.from(atob(base64), (c) => c.charCodeAt(0));
  const [document] = await new Promise((success, fail) => {
    window.ofd.parseOfdDocument({ ofd: bytes(ofd).buffer, success, fail });
  });
  const pages = window.ofd.renderOfd(800, document);
  const pixelsOf = async (address) => {
    const image = new Image();
    image.src = address;
    await image.decode();
    const canvas = window.document.createElement('canvas');
    [canvas.width, canvas.height] = [image.naturalWidth, image.naturalHeight];
    const context = canvas.getContext('2d');
    context.drawImage(image, 0, 0);
    return context.getImageData(0, 0, canvas.width, canvas.height);
  };
  const wanted = await pixelsOf(`data:image/jpeg;base64,${photo}`);
  const found = [];
  for (const page of pages) {
    const images = page.querySelectorAll('image');
    const { data, width, height } = await pixelsOf(images[0].getAttribute('xlink:href'));
    const sums = { color: 0, bilevel: 0, difference: 0 };
    for (let i = 0; i < data.length; i += 4) {
      sums.color += Math.abs(data[i] - data[i + 2]);
      sums.bilevel += data[i] === 0 || data[i] === 255;
      sums.difference += Math.abs(data[i + 1] - wanted.data[i + 1]);
    }
    const count = width * height;
    found.push({
      images: images.length, width, height,
      color: sums.color / count, bilevel: sums.bilevel / count, difference: sums.difference / count,
    });
  }
  return found;
}

test('a viewer opens what was scanned', { skip: missing }, async () => {
  const photo = join(server.folder, 'photo.jpg');
  await send('bStartPlay()', `bSaveJPG(${server.folder},photo)`, `bSaveOFDStart(${server.folder},scan)`,
    'bSaveOFDColorPage()', 'bSaveOFDBWPage()', `bAddOFDPage(${photo},1)`, 'bSaveOFDEnd()');
  const page = await browser.open('about:blank');
  await page.addScriptTag({ path: viewer });
  const base64 = (file) => readFileSync(file).toString('base64');
  const found = await page.evaluate(inspect, { ofd: base64(join(server.folder, 'scan.ofd')), photo: base64(photo) });
  const kinds = found.map(({ images, width, height, color, bilevel, difference }) =>
    `${images} ${width}x${height} ${color > 3 ? 'color' : 'grey'} ${bilevel > 0.99 ? 'bilevel' : 'shades'} ${difference < 5 ? 'same' : 'other'}`);
  assert.deepEqual(kinds, ['1 640x480 color shades same', '1 640x480 grey bilevel other', '1 640x480 color shades same'],
    JSON.stringify(found));
});
