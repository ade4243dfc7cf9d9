// SPDX-License-Identifier: MIT
//
// Zooming and moving the picture in its stage: buttons, wheel, dragging, keys.

'use strict';

const ZOOM_STEP = 1.25;
const ZOOM_LIMITS = [0.1, 16]; // screen pixels per picture pixel
const KEY_PIXELS = 60;

class Zoom {
  /**
   * @param stage   the element that shows a part of the canvas
   * @param changed called after the zoom has changed
   */
  constructor(stage, canvas, changed) {
    this.stage = stage;
    this.canvas = canvas;
    this.changed = changed;
    this.fitting = true;
    this.scale = 1; // screen pixels per picture pixel
    this.x = 0; // of the canvas's upper left corner in the stage
    this.y = 0;
    this.dragged = null; // position of the last pointer event
    new ResizeObserver(() => this.place()).observe(stage);
    stage.addEventListener('wheel', (event) => this.wheel(event), { passive: false });
    stage.addEventListener('dblclick', (event) => this.doubleClick(event));
    stage.addEventListener('keydown', (event) => this.key(event));
    canvas.addEventListener('pointerdown', (event) => this.grab(event));
    canvas.addEventListener('pointermove', (event) => this.drag(event));
    for (const end of ['pointerup', 'pointercancel'])
      canvas.addEventListener(end, () => this.release());
  }

  fit() {
    this.fitting = true;
    this.place();
  }

  /** One picture pixel per screen pixel. */
  actual() {
    this.zoomTo(1 / window.devicePixelRatio, this.center());
  }

  /** @param factor  above 1: closer; the picture's point at `at` stays in place */
  zoomBy(factor, at = this.center()) {
    this.zoomTo(this.scale * factor, at);
  }

  zoomTo(scale, at) {
    const [minimum, maximum] = ZOOM_LIMITS;
    const limited = Math.min(Math.max(scale, minimum), maximum);
    this.x = at.x - (at.x - this.x) * limited / this.scale;
    this.y = at.y - (at.y - this.y) * limited / this.scale;
    this.scale = limited;
    this.fitting = false;
    this.place();
  }

  moveBy(x, y) {
    this.x += x;
    this.y += y;
    this.place();
  }

  isActual() {
    return !this.fitting && Math.abs(this.scale * window.devicePixelRatio - 1) < 0.001;
  }

  center() {
    return { x: this.stage.clientWidth / 2, y: this.stage.clientHeight / 2 };
  }

  /** Positions the canvas; call it after its size or the stage's has changed. */
  place() {
    const { stage, canvas } = this;
    const room = { width: stage.clientWidth, height: stage.clientHeight };
    if (this.fitting)
      this.scale = Math.min(room.width / canvas.width, room.height / canvas.height);
    this.x = inside(this.x, canvas.width * this.scale, room.width);
    this.y = inside(this.y, canvas.height * this.scale, room.height);
    canvas.style.transform = `translate(${this.x}px, ${this.y}px) scale(${this.scale})`;
    canvas.classList.toggle('sharp', this.scale >= 3);
    canvas.classList.toggle('movable', !this.fitting);
    this.changed();
  }

  wheel(event) {
    event.preventDefault();
    const box = this.stage.getBoundingClientRect();
    const factor = event.deltaY < 0 ? ZOOM_STEP : 1 / ZOOM_STEP;
    this.zoomBy(factor, { x: event.clientX - box.left, y: event.clientY - box.top });
  }

  doubleClick(event) {
    if (event.target !== this.canvas)
      return;
    if (this.fitting)
      this.actual();
    else
      this.fit();
  }

  key(event) {
    if (event.target !== this.stage || event.ctrlKey || event.altKey || event.metaKey)
      return;
    const act = {
      '+': () => this.zoomBy(ZOOM_STEP),
      '=': () => this.zoomBy(ZOOM_STEP),
      '-': () => this.zoomBy(1 / ZOOM_STEP),
      '0': () => this.fit(),
      '1': () => this.actual(),
      ArrowLeft: () => this.moveBy(KEY_PIXELS, 0),
      ArrowRight: () => this.moveBy(-KEY_PIXELS, 0),
      ArrowUp: () => this.moveBy(0, KEY_PIXELS),
      ArrowDown: () => this.moveBy(0, -KEY_PIXELS),
    }[event.key];
    if (!act)
      return;
    event.preventDefault();
    act();
  }

  grab(event) {
    if (event.button !== 0)
      return;
    this.canvas.setPointerCapture(event.pointerId);
    this.dragged = { x: event.clientX, y: event.clientY };
  }

  drag(event) {
    if (!this.dragged || this.fitting)
      return;
    this.moveBy(event.clientX - this.dragged.x, event.clientY - this.dragged.y);
    this.dragged = { x: event.clientX, y: event.clientY };
  }

  release() {
    this.dragged = null;
  }
}

/** Where a length of `size` starts in `room`: centered if shorter, without margins if longer. */
function inside(start, size, room) {
  return size <= room ? (room - size) / 2 : Math.min(0, Math.max(room - size, start));
}
