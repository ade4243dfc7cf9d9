// SPDX-License-Identifier: MIT
//
// Chromium for tests. A test file starts it once and reuses its tabs: a new tab takes most of a
// second, a page in an open one a tenth of that.
import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { chromium } from 'playwright-core';

const executablePath = process.env.CHROMIUM || '/usr/bin/chromium';

/** Option of tests that need Chromium: false, or why they are skipped. */
export const skip = existsSync(executablePath) ? false : `no ${executablePath}`;

export class Browser {
  /**
   * @param options  of the browser context that all tabs share
   * @param prepare  called once with each new tab, to listen to more of its events
   */
  static async launch(options = {}, prepare = () => {}) {
    const browser = new Browser();
    browser.process = await chromium.launch({ executablePath, args: ['--no-sandbox', '--disable-gpu'] });
    browser.context = await browser.process.newContext(options);
    browser.prepare = prepare;
    browser.idle = [];
    return browser;
  }

  /** Opens an address in an unused tab. What goes wrong in it is listed in its `faults`. */
  async open(address, viewport = { width: 1280, height: 800 }) {
    const page = this.idle.pop() || await this.newTab();
    page.faults = [];
    await page.bringToFront(); // a hidden tab draws one frame a second, and clicks wait for two
    await page.setViewportSize(viewport);
    await page.goto(address);
    return page;
  }

  async newTab() {
    const page = await this.context.newPage();
    page.setDefaultTimeout(20000);
    page.on('pageerror', (error) => page.faults.push(error.message));
    page.on('dialog', (dialog) => {
      page.faults.push(dialog.message());
      dialog.dismiss().catch(() => {}); // the tab may be gone
    });
    this.prepare(page);
    return page;
  }

  /** Leaves the page, which forgets what it has stored, and fails if anything went wrong in it. */
  async leave(page) {
    await page.evaluate(() => {
      localStorage.clear();
      sessionStorage.clear();
    });
    await page.goto('about:blank');
    this.idle.push(page);
    assert.deepEqual(page.faults, []);
  }

  close() { return this.process.close(); }
}
