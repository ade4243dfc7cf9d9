// SPDX-License-Identifier: MIT
//
// The preview, drawn by the client, with statistics for technicians.

'use strict';

/** Without a frame for this long the picture counts as stopped. */
const STILL_MILLISECONDS = 2000;

class LivePicture {
  /** @param sizeChanged  called after the canvas has changed its size */
  constructor(canvas, sizeChanged) {
    this.canvas = canvas;
    this.sizeChanged = sizeChanged;
    this.preview = null; // the client's
    this.newest = null; // { base64, time } of the latest frame
    this.shown = null; // { width, height } on the canvas
    this.received = 0;
    this.rate = 0; // frames per second
    this.measured = { received: 0, at: performance.now() };
  }

  /** Shows the frames of another client from now on. */
  follow(client) {
    if (this.preview)
      this.preview.stop();
    client.on('frame', (base64) => {
      this.received += 1;
      this.newest = { base64, time: new Date() };
    });
    client.on('drawn', () => this.drawn());
    this.preview = client.preview(this.canvas);
  }

  drawn() {
    const { width, height } = this.canvas;
    const resized = !this.shown || this.shown.width !== width || this.shown.height !== height;
    this.shown = { width, height };
    if (resized)
      this.sizeChanged();
  }

  /** Numbers of frames replaced by a newer one, and of frames that could not be decoded. */
  figures() {
    const { dropped, broken } = this.preview || { dropped: 0, broken: 0 };
    return { dropped, broken };
  }

  /** Bytes of the newest frame as a file. */
  size() {
    return this.newest ? Math.floor(this.newest.base64.length * 3 / 4) : 0;
  }

  /** Updates the rate; call it about once a second. */
  measure() {
    const now = performance.now();
    const seconds = (now - this.measured.at) / 1000;
    if (seconds > 0)
      this.rate = (this.received - this.measured.received) / seconds;
    this.measured = { received: this.received, at: now };
  }

  isLive() {
    return Boolean(this.newest) && Date.now() - this.newest.time < STILL_MILLISECONDS;
  }
}
