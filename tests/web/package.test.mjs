// SPDX-License-Identifier: MIT
//
// The client's npm package, as it would be published, in three small apps: a page without a bundler, a
// bundled page, and a program in strict TypeScript. Nothing is downloaded.
import assert from 'node:assert/strict';
import { execFile, spawn } from 'node:child_process';
import { cpSync, mkdtempSync, readFileSync, readdirSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, test } from 'node:test';
import { createInterface } from 'node:readline';
import { fileURLToPath, pathToFileURL } from 'node:url';
import { promisify } from 'node:util';
import { Browser, skip } from './browser.mjs';

const here = (path) => fileURLToPath(new URL(path, import.meta.url));
const run = promisify(execFile);

let folder;
let browser;
let mock; // the program that the package installs
let server; // its address

before(async () => {
  folder = mkdtempSync(join(tmpdir(), 'client-package-'));
  const { stdout } = await run(process.execPath, [here('../../scripts/pack-client.mjs'), folder]);
  cpSync(here('apps'), join(folder, 'apps'), { recursive: true });
  // ws is taken from here: npm finds it there and asks no registry.
  const dependencies = { 'device-server-client': `file:${stdout.trim()}`, ws: `file:${here('node_modules/ws')}` };
  writeFileSync(join(folder, 'apps/package.json'), JSON.stringify({ type: 'module', dependencies }));
  writeFileSync(join(folder, 'apps/script.json'), '{ "answers": { "getVersion": "mocked" } }');
  const install = ['install', '--offline', '--no-audit', '--no-fund', '--loglevel=error'];
  const options = { cwd: join(folder, 'apps') };
  [browser] = await Promise.all([skip ? null : Browser.launch(), run('npm', install, options)]);
  mock = spawn('node_modules/.bin/device-server-client', ['--port', '0', '--script', 'script.json'], options);
  for await (const line of createInterface({ input: mock.stdout })) {
    server = line.replace('listening at ', '');
    break;
  }
});
after(async () => {
  mock?.stdin.end('quit\n');
  await Promise.all([browser && browser.close(), mock && new Promise((resolve) => { mock.once('exit', resolve); })]);
  rmSync(folder, { recursive: true, force: true });
});

test('the package holds what it names, and nothing points out of it', () => {
  const root = join(folder, 'apps/node_modules/device-server-client');
  const files = readdirSync(root, { recursive: true, withFileTypes: true }).filter((entry) => entry.isFile())
      .map((entry) => entry.name);
  assert.ok(files.includes('LICENSE'));
  const { main, types, bin, exports, private: isPrivate } = JSON.parse(readFileSync(join(root, 'package.json')));
  assert.equal(isPrivate, undefined);
  const named = JSON.stringify([main, types, bin, exports]).match(/[\w./]+\.(?:d\.ts|json|js)(?=")/g);
  for (const path of named)
    assert.ok(readFileSync(join(root, path)).length > 0, path);
  const readme = readFileSync(join(root, 'README.md'), 'utf8');
  for (const [, target] of readme.matchAll(/\]\(([^)]*)\)/g))
    assert.ok(!target.startsWith('..') && (target.startsWith('#') || readFileSync(join(root, target))), target);
});

test('a bundled page and one without a bundler show the mock’s preview', { skip }, async () => {
  const bundle = join(folder, 'apps/bundle');
  const options = ['--bundle', '--minify', '--target=chrome80', '--outfile=out.js'];
  await run(here('node_modules/.bin/esbuild'), ['app.js', ...options], { cwd: bundle });
  writeFileSync(join(bundle, 'index.html'), '<!DOCTYPE html><canvas></canvas><script src="out.js"></script>');
  for (const name of ['plain', 'bundle']) {
    const address = pathToFileURL(join(folder, 'apps', name, 'index.html'));
    const page = await browser.open(`${address}?server=${encodeURIComponent(server)}`);
    await page.waitForFunction(() => document.title === 'mocked 400');
    await browser.leave(page);
  }
});

test('a program in strict TypeScript compiles and runs', async () => {
  const app = join(folder, 'apps/strict');
  await run(here('node_modules/.bin/tsc'), ['-p', app]).catch(({ stdout }) => assert.fail(stdout));
  const { stdout } = await run(process.execPath, [join(app, 'out/app.js')]);
  assert.equal(stdout, '87 readIDMsg failed: no card hello boolean\n');
});
