// SPDX-License-Identifier: MIT
//
// Kills and stops the device process at random moments under a client that sends commands all the
// time: each has to be answered, and the picture has to be back soon. See
// scripts/break-device-process.sh.

import { readFileSync, readdirSync } from 'node:fs';
import { createServer } from 'node:http';
import { createRequire } from 'node:module';

const require = createRequire(new URL('../web/package.json', import.meta.url));
const WebSocket = require('ws');

const [folder, roundsText] = process.argv.slice(2);
const rounds = Number(roundsText);
const pictureLimit = 3000; // ms
const answerLimit = 35000;
const sleep = (ms) => new Promise((resolve) => { setTimeout(resolve, ms); });

/** The process id of the device process, 0 without one. */
function deviceProcess() {
  for (const pid of readdirSync('/proc').filter((name) => /^\d+$/.test(name))) {
    try {
      if (readFileSync(`/proc/${pid}/comm`, 'utf8').trim() === 'devicehost') return Number(pid);
    } catch { /* it has just ended */ }
  }
  return 0;
}

let lastFrame = 0;
let waiting = null; // { name, resolve }
const socket = new WebSocket('ws://127.0.0.1:1818');
socket.on('message', (data) => {
  const text = data.toString();
  if (text.startsWith('/9j/')) {
    lastFrame = Date.now();
  } else if (waiting && text.startsWith(`Begin${waiting.name}`)) {
    waiting.resolve(text);
  }
});
socket.on('close', () => {
  console.log('FAILED: the server closed the connection');
  process.exit(1);
});

let unanswered = 0;
let answered = 0;
async function call(command) {
  const name = command.slice(0, command.indexOf('('));
  const answer = await new Promise((resolve) => {
    waiting = { name, resolve };
    socket.send(command);
    setTimeout(resolve, answerLimit, null).unref();
  });
  waiting = null;
  if (answer === null) {
    unanswered += 1;
    console.log(`no answer to ${command}`);
  } else {
    answered += 1;
  }
  return answer;
}

const sink = createServer((request, response) => {
  request.resume();
  request.on('end', () => setTimeout(() => response.end('ok'), 100));
});
await new Promise((resolve) => { sink.listen(0, '127.0.0.1', resolve); });
const upload = `http://127.0.0.1:${sink.address().port}/`;

const activities = {
  preview: ['iGetRotate()', 'vSetBrightness(5)'],
  capture: [`bSaveJPG(${folder},a)`, 'sGetJpgBase64(0)', `bSavePNG(${folder},b)`],
  pdf: [`bSavePDFStart(${folder},doc)`, 'bSavePDFColorPage()', 'bSavePDFBWPage()', 'bSavePDFEnd()'],
  recording: [`bStartRec(${folder}/film.mp4)`, 'isRecording()', 'bPauseRec()', 'bResumeRec()'],
  card: ['readIDMsg()', 'iReadICCardSnr()', 'GetBankCardInfo(1)'],
  upload: [`bSaveJPG(${folder},up)`, `sUpLoadImage(${upload},${folder}/up.jpg)`],
};

await new Promise((resolve) => { socket.on('open', resolve); });
await call('bStartPlay()');
let isOver = false;
const commands = (async () => {
  for (let i = 0; !isOver; i += 1) {
    const names = Object.keys(activities);
    for (const command of activities[names[i % names.length]]) {
      if (!isOver) await call(command);
    }
  }
})();

let late = 0;
const gaps = [];
for (let round = 0; round < rounds; round += 1) {
  const signal = round % 2 ? 'SIGSTOP' : 'SIGKILL';
  await sleep(500 + Math.random() * 2000);
  for (let i = 0; i < 100 && Date.now() - lastFrame > 500; i += 1) await sleep(100);
  const pid = deviceProcess();
  if (!pid) {
    console.log(`round ${round}: no device process runs`);
    continue;
  }
  const at = Date.now();
  process.kill(pid, signal);
  while (lastFrame <= at + 300 && Date.now() - at < 20000) await sleep(20);
  const gap = lastFrame > at + 300 ? lastFrame - at : 20000;
  gaps.push(gap);
  if (gap > pictureLimit) {
    late += 1;
    console.log(`round ${round}: ${signal}: picture back after ${gap} ms`);
  }
  // One that keeps dying is restarted more and more slowly: that is not what is looked at here.
  await sleep(process.env.PAUSE_MS ?? 5500);
}
isOver = true;
await commands;
gaps.sort((a, b) => a - b);
const quantile = (part) => gaps[Math.min(gaps.length - 1, Math.floor(gaps.length * part))];
console.log(`${gaps.length} of ${rounds} rounds: picture back after ${quantile(0.5)} ms (median), `
  + `${quantile(0.95)} (95 %), ${quantile(1)} (longest); ${late} later than ${pictureLimit} ms; `
  + `${answered} commands answered, ${unanswered} not`);
socket.removeAllListeners('close');
process.exit(late || unanswered || gaps.length < rounds ? 1 : 0);
