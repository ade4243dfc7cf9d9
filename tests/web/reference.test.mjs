// SPDX-License-Identifier: MIT
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';
import ts from 'typescript';

const path = (relative) => fileURLToPath(new URL(relative, import.meta.url));

test('the facts match the command list, and what is made from them is up to date', () => {
  const script = path('../../scripts/generate-reference.mjs');
  const { status, stderr } = spawnSync(process.execPath, [script, '--check'], { encoding: 'utf8' });
  assert.equal(status, 0, stderr);
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
