// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { readFileSync, readdirSync } from 'node:fs';
import { before, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import ts from 'typescript';

const path = (relative) => fileURLToPath(new URL(relative, import.meta.url));

test('the facts match the command list, and the files generated from them are up to date', () => {
  const script = path('../../scripts/generate-reference.mjs');
  const { status, stderr } = spawnSync(process.execPath, [script, '--check'], { encoding: 'utf8' });
  assert.equal(status, 0, stderr);
});

const clientFolder = path('../../client/');
const modules = readdirSync(clientFolder).filter((name) => name.endsWith('.js') && !name.includes('global'))
    .map((name) => clientFolder + name);
const typesFile = path('types.ts');

/** Messages of the compiler about one file. Both are compiled at once: parsing the libraries takes long. */
let messages;
before(() => {
  const program = ts.createProgram([...modules, typesFile], {
    noEmit: true,
    strict: true,
    allowJs: true,
    checkJs: true,
    skipDefaultLibCheck: true,
    target: ts.ScriptTarget.ES2020,
    module: ts.ModuleKind.NodeNext,
    lib: ['lib.es2020.d.ts', 'lib.dom.d.ts'],
  });
  messages = ts.getPreEmitDiagnostics(program);
});

const textOf = ({ messageText }) => ts.flattenDiagnosticMessageText(messageText, '\n');

test('the client uses nothing newer than Chromium 80', () => {
  for (const file of modules) {
    const transpiled = (target) => ts.transpile(readFileSync(file, 'utf8'), { target });
    assert.equal(transpiled(ts.ScriptTarget.ES2020), transpiled(ts.ScriptTarget.ESNext), file);
  }
  const needsNewerLibrary = [2550, 2551, 2552, 2583, 2304];
  assert.deepEqual(messages.filter(({ file, code }) => file && modules.includes(file.fileName)
      && needsNewerLibrary.includes(code)).map(textOf), []);
});

test('the client’s types accept correct pages and reject wrong ones', () => {
  assert.deepEqual(messages.filter(({ file }) => !file || !modules.includes(file.fileName)).map(textOf), []);
});
