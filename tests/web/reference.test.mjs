// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import ts from 'typescript';

const path = (relative) => fileURLToPath(new URL(relative, import.meta.url));

test('the facts match the command list, and what is made from them is up to date', () => {
  const script = path('../../scripts/generate-reference.mjs');
  const { status, stderr } = spawnSync(process.execPath, [script, '--check'], { encoding: 'utf8' });
  assert.equal(status, 0, stderr);
});

test('the client needs nothing newer than Chromium 80 has', () => {
  const file = path('../../client/deviceclient.js');
  const transpiled = (target) => ts.transpile(readFileSync(file, 'utf8'), { target });
  assert.equal(transpiled(ts.ScriptTarget.ES2020), transpiled(ts.ScriptTarget.ESNext), 'syntax');

  const program = ts.createProgram([file], {
    noEmit: true, allowJs: true, checkJs: true, target: ts.ScriptTarget.ES2020, lib: ['lib.es2020.d.ts', 'lib.dom.d.ts'],
  });
  const needsNewerLibrary = [2550, 2551, 2552, 2583, 2304];
  const faults = ts.getPreEmitDiagnostics(program).filter(({ code }) => needsNewerLibrary.includes(code))
      .map(({ messageText }) => ts.flattenDiagnosticMessageText(messageText, '\n'));
  assert.deepEqual(faults, []);
});

test('the client’s types let pages through that are right, and no others', () => {
  const program = ts.createProgram([path('types.ts')], {
    noEmit: true,
    strict: true,
    target: ts.ScriptTarget.ES2020,
    module: ts.ModuleKind.NodeNext,
    lib: ['lib.es2020.d.ts', 'lib.dom.d.ts'],
  });
  const faults = ts.getPreEmitDiagnostics(program).map(({ messageText }) => ts.flattenDiagnosticMessageText(messageText, '\n'));
  assert.deepEqual(faults, []);
});
