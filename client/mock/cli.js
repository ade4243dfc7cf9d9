#!/usr/bin/env node
// SPDX-License-Identifier: MIT
import { readFileSync, readdirSync, watchFile } from 'node:fs';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { startMock } from './mock.js';

const usage = `usage: device-server-client [option...]

A mock of the device server, for trying pages without devices.

  --port NUMBER      default: 1818; 0: any free one
  --host ADDRESS     default: 127.0.0.1
  --script FILE      JSON: { "answers": { COMMAND: ANSWER or [ANSWER, ...] }, "pushes": [...] };
                     read again when it changes
  --fps NUMBER       frames per second of a preview; default: 10, 0: none
  --pictures FOLDER  its JPEG files are the frames
  --quiet            do not print what is received and sent

While it runs, type: push EVENT [RESULT], COMMAND ANSWER, hang [SECONDS], resume, drop, quit.
The README of the package has the answers and faults.
`;

function fail(what) {
  process.stderr.write(`device-server-client: ${what}\n`);
  process.exit(2);
}

function readOptions(words) {
  const options = {};
  const left = [...words];
  while (left.length > 0) {
    const option = left.shift();
    if (option === '--help' || option === '-h') {
      process.stdout.write(usage);
      process.exit(0);
    }
    if (option === '--quiet') {
      options.quiet = true;
      continue;
    }
    if (!['--port', '--host', '--script', '--fps', '--pictures'].includes(option) || left.length === 0)
      fail(`what is ${option}? See --help`);
    options[option.slice(2)] = left.shift();
  }
  for (const name of ['port', 'fps']) {
    if (options[name] !== undefined && !(Number(options[name]) >= 0))
      fail(`--${name} must be a number`);
  }
  return options;
}

function readScript(path) {
  const text = readFileSync(path, 'utf8');
  try {
    return JSON.parse(text);
  } catch (error) {
    throw new Error(`${path}: ${error.message}`);
  }
}

function readPictures(folder) {
  const names = readdirSync(folder).filter((name) => /\.jpe?g$/i.test(name)).sort();
  if (names.length === 0)
    throw new Error(`${folder} has no JPEG files`);
  return names.map((name) => readFileSync(join(folder, name)).toString('base64'));
}

const shortened = (line) => (line.length > 200 ? `${line.slice(0, 200)}... ${line.length} characters` : line);

/** Says what comes of it, or went wrong: the mock goes on. */
function attempt(act) {
  try {
    log(act() || 'done');
  } catch (error) {
    process.stdout.write(`${error.message}\n`);
  }
}

function carryOut(mock, line) {
  const [, word, rest] = /^(\S*)\s*(.*)$/.exec(line.trim());
  const [event, ...result] = rest.split(' ');
  if (word === 'push')
    mock.push(event, result.length > 0 ? result.join(' ') : undefined);
  else if (word === 'hang')
    mock.hang(Number(rest) * 1000);
  else if (word === 'resume' || word === 'drop')
    mock[word]();
  else if (word === 'quit')
    process.exit(0);
  else if (word)
    mock.script(word, ...(rest ? [rest.startsWith('{') ? JSON.parse(rest) : rest] : []));
}

const { quiet, script, pictures, port = 1818, fps = 10, ...rest } = readOptions(process.argv.slice(2));
const log = (line) => quiet || process.stdout.write(`${shortened(line)}\n`);
let mock;
try {
  const scripted = script ? readScript(script) : {};
  const frames = pictures ? { frames: readPictures(pictures) } : {};
  mock = await startMock({ ...rest, ...scripted, ...frames, port: Number(port), fps: Number(fps), log });
} catch (error) {
  fail(error.message);
}
process.stdout.write(`listening at ${mock.url}\n`);
if (script)
  watchFile(script, { interval: 500 }, () => attempt(() => {
    mock.scriptAll(readScript(script).answers || {});
    return `${script} was read again`;
  }));
createInterface({ input: process.stdin }).on('line', (line) => attempt(() => carryOut(mock, line)));
