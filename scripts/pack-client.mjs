#!/usr/bin/env node
// SPDX-License-Identifier: MIT
//
// usage: scripts/pack-client.mjs [folder]
// Makes the npm package of the client, build/client/*.tgz by default, to be published as it is. The client
// is minified there, with a source map; esbuild is one of the packages of tests/web (npm ci). Prints
// the file's path.
import { spawnSync } from 'node:child_process';
import { copyFileSync, cpSync, mkdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { basename, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { gzipSync } from 'node:zlib';

const root = fileURLToPath(new URL('..', import.meta.url));
const { buildSync } = createRequire(join(root, 'tests/web/package.json'))('esbuild');

const target = resolve(process.argv[2] || join(root, 'build/client'));
const folder = join(target, 'package');
const inClient = (name) => join(root, 'client', name);
const inPackage = (name) => join(folder, name);

/** For each of the two forms of the client, compressed, in bytes. */
const sizeLimit = 12 * 1024;

function minify(name, options) {
  buildSync({
    entryPoints: [inClient(name)], outfile: inPackage(name), minify: true, target: 'chrome80', charset: 'utf8',
    banner: { js: '// SPDX-License-Identifier: MIT' }, logLevel: 'warning', ...options,
  });
  const size = gzipSync(readFileSync(inPackage(name)), { level: 9 }).length;
  if (size > sizeLimit)
    throw new Error(`${name} has ${size} bytes compressed, more than ${sizeLimit}`);
  process.stderr.write(`${name}: ${size} bytes compressed\n`);
}

rmSync(folder, { recursive: true, force: true });
mkdirSync(folder, { recursive: true });
for (const name of ['commands.js', 'commands.d.ts', 'deviceclient.d.ts', 'deviceclient.global.d.ts'])
  copyFileSync(inClient(name), inPackage(name));
// Without the link to the Chinese page, which stays in the source tree.
writeFileSync(inPackage('README.md'), readFileSync(inClient('README.md'), 'utf8').replace('[中文](README.zh.md). ', ''));
cpSync(inClient('mock'), inPackage('mock'), { recursive: true });
copyFileSync(join(root, 'docs/commands.json'), inPackage('mock/commands.json'));
copyFileSync(join(root, 'LICENSE'), inPackage('LICENSE'));

// "private" keeps the sources from being published by mistake.
const { private: _, ...description } = JSON.parse(readFileSync(inClient('package.json')));
writeFileSync(inPackage('package.json'), `${JSON.stringify(description, null, 2)}\n`);

minify('deviceclient.js', { bundle: true, format: 'esm', sourcemap: true });
minify('deviceclient.global.js', {});
const map = JSON.parse(readFileSync(inPackage('deviceclient.js.map')));
map.sources = map.sources.map((path) => `source/${basename(path)}`);
writeFileSync(inPackage('deviceclient.js.map'), JSON.stringify(map));

const { status, stdout } = spawnSync('npm', ['pack', '--silent', '--pack-destination', target],
                                     { cwd: folder, encoding: 'utf8', stdio: ['ignore', 'pipe', 'inherit'] });
if (status === 0)
  process.stdout.write(`${join(target, stdout.trim())}\n`);
process.exitCode = status;
