// SPDX-License-Identifier: MIT
//
// The bars between panes: dragged or moved with arrow keys, remembered, reset by a double-click.

'use strict';

const SPLIT_STEP = 24;
const SPLIT_MINIMUM = 60;

/**
 * @param bar       the element between the panes
 * @param property  the CSS variable that holds the size, in pixels
 * @param pane      the pane whose size it is
 * @param after     whether the pane comes after the bar
 */
function makeSplitter(bar, property, pane, after) {
  const vertical = bar.getAttribute('aria-orientation') === 'vertical';
  const root = document.documentElement;
  const sizeNow = () => (vertical ? pane.offsetWidth : pane.offsetHeight);

  function resize(size) {
    if (size === null)
      root.style.removeProperty(property);
    else
      root.style.setProperty(property, `${Math.max(Math.round(size), SPLIT_MINIMUM)}px`);
    settings.set(`size${property}`, size);
    updateAria();
  }

  function updateAria() {
    bar.setAttribute('aria-valuemin', String(SPLIT_MINIMUM));
    bar.setAttribute('aria-valuemax', String(vertical ? window.innerWidth : window.innerHeight));
    bar.setAttribute('aria-valuenow', String(sizeNow()));
  }

  let from = null; // pointer position and size at the start of the drag
  bar.addEventListener('pointerdown', (event) => {
    bar.setPointerCapture(event.pointerId);
    from = { at: vertical ? event.clientX : event.clientY, size: sizeNow() };
    event.preventDefault();
  });
  bar.addEventListener('pointermove', (event) => {
    if (!from)
      return;
    const moved = (vertical ? event.clientX : event.clientY) - from.at;
    resize(from.size + (after ? -moved : moved));
  });
  for (const end of ['pointerup', 'pointercancel'])
    bar.addEventListener(end, () => { from = null; });
  bar.addEventListener('dblclick', () => resize(null));
  bar.addEventListener('keydown', (event) => {
    const by = { ArrowLeft: -1, ArrowUp: -1, ArrowRight: 1, ArrowDown: 1 }[event.key];
    if (event.key === 'Home')
      resize(null);
    else if (by)
      resize(sizeNow() + SPLIT_STEP * (after ? -by : by));
    else
      return;
    event.preventDefault();
  });

  const kept = settings.get(`size${property}`, null);
  if (kept !== null)
    resize(kept);
  else
    updateAria();
}
