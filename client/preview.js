// SPDX-License-Identifier: MIT
//
// Frames on the page.

/**
 * Draws the newest frame on an <img> or <canvas>. While a frame is being decoded, only the newest of
 * the following ones is kept; a hidden page decodes nothing.
 */
export class Preview {
  /** @param options  worker: decode in a Web Worker that all such previews of the page share */
  constructor(client, target, { worker = false } = {}) {
    this.client = client;
    this.worker = worker;
    this.target = target;
    this.received = 0;
    this.drawn = 0;
    this.dropped = 0; // replaced by a newer one
    this.broken = 0; // not a readable JPEG
    this.waiting = null;
    this.drawing = false;
    this.drawWaiting = this.drawWaiting.bind(this);
    this.end = client.on('frame', (base64) => this.frame(base64));
    document.addEventListener('visibilitychange', this.drawWaiting);
  }

  /** Stops drawing; the last frame stays. */
  stop() {
    this.end();
    this.waiting = null;
    document.removeEventListener('visibilitychange', this.drawWaiting);
  }

  frame(base64) {
    this.received += 1;
    if (this.waiting !== null)
      this.dropped += 1;
    this.waiting = base64;
    this.drawWaiting();
  }

  async drawWaiting() {
    if (this.drawing)
      return;
    this.drawing = true;
    while (this.waiting !== null && !document.hidden) {
      const base64 = this.waiting;
      this.waiting = null;
      try {
        await this.draw(base64);
      } catch {
        this.broken += 1;
      }
    }
    this.drawing = false;
  }

  async draw(base64) {
    if (this.target.getContext) // not instanceof: it may belong to another window
      await drawOnCanvas(this.target, base64, this.worker);
    else
      await showInImage(this.target, base64);
    this.drawn += 1;
    this.client.emit('drawn', this);
  }
}

function jpegOf(base64) {
  const characters = atob(base64);
  const bytes = new Uint8Array(characters.length);
  for (let i = 0; i < characters.length; i += 1)
    bytes[i] = characters.charCodeAt(i);
  return new Blob([bytes], { type: 'image/jpeg' });
}

async function drawOnCanvas(canvas, base64, worker) {
  const decoding = share(base64, worker);
  try {
    const picture = await decoding.picture;
    if (canvas.width !== picture.width || canvas.height !== picture.height) {
      canvas.width = picture.width;
      canvas.height = picture.height;
    }
    canvas.getContext('2d').drawImage(picture, 0, 0);
  } finally {
    unshare(base64, decoding);
  }
}

/** Frames that are being decoded or drawn: several previews of a client decode each only once. */
const shared = new Map();

function share(base64, worker) {
  const decoding = shared.get(base64) || { picture: decode(base64, worker), users: 0 };
  decoding.users += 1;
  shared.set(base64, decoding);
  return decoding;
}

function unshare(base64, decoding) {
  decoding.users -= 1;
  if (decoding.users > 0)
    return;
  shared.delete(base64);
  decoding.picture.then((picture) => picture.close && picture.close(), () => {});
}

async function decode(base64, worker) {
  if (!globalThis.createImageBitmap)
    return showInImage(new Image(), base64);
  try {
    if (worker)
      return await decodeInWorker(base64);
  } catch (error) {
    if (error)
      throw error; // not a readable JPEG
  }
  return createImageBitmap(jpegOf(base64));
}

// ---- Decoding in a worker -----------------------------------------------------------------------

/** null before the first use; false if the page's policy (CSP) allows no worker of this kind */
let decoder = null;
const decodings = new Map();
let decodingId = 0;

/** Runs in the worker, as text: it uses nothing from outside. */
function runDecoder() {
  globalThis.onmessage = function ({ data: { id, base64 } }) {
    const failed = (error) => globalThis.postMessage({ id, error: String(error) });
    try {
      const characters = atob(base64);
      const bytes = new Uint8Array(characters.length);
      for (let i = 0; i < characters.length; i += 1)
        bytes[i] = characters.charCodeAt(i);
      createImageBitmap(new Blob([bytes], { type: 'image/jpeg' }))
          .then((picture) => globalThis.postMessage({ id, picture }, [picture]), failed);
    } catch (error) {
      failed(error);
    }
  };
}

/** @returns a promise of an ImageBitmap; rejected with an error if it is no JPEG, with null without a worker */
function decodeInWorker(base64) {
  if (decoder === null)
    startDecoder();
  if (!decoder)
    return Promise.reject(null);
  return new Promise((resolve, reject) => {
    decodingId += 1;
    decodings.set(decodingId, { resolve, reject });
    decoder.postMessage({ id: decodingId, base64 });
  });
}

function startDecoder() {
  const noDecoder = () => {
    decoder = false;
    decodings.forEach(({ reject }) => reject(null));
    decodings.clear();
  };
  try {
    decoder = new Worker(URL.createObjectURL(new Blob([`(${runDecoder})()`], { type: 'text/javascript' })));
    decoder.onerror = noDecoder;
    decoder.onmessage = ({ data: { id, picture, error } }) => {
      const { resolve, reject } = decodings.get(id);
      decodings.delete(id);
      if (picture)
        resolve(picture);
      else
        reject(new Error(error));
    };
  } catch {
    noDecoder();
  }
}

/** @returns a promise of the element, settled once it shows the picture */
function showInImage(image, base64) {
  const url = URL.createObjectURL(jpegOf(base64));
  return new Promise((resolve, reject) => {
    image.onload = () => resolve(image);
    image.onerror = reject;
    image.src = url;
  }).finally(() => URL.revokeObjectURL(url));
}
