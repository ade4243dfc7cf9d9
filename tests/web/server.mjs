// SPDX-License-Identifier: MIT
//
// The real server for tests, in a folder of its own. Its port, 1818, is fixed: only one test file can
// run it at a time.
import { spawn } from 'node:child_process';
import { copyFileSync, existsSync, mkdtempSync, rmSync, symlinkSync, writeFileSync } from 'node:fs';
import { connect } from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

const port = 1818;
const sourceFolder = fileURLToPath(new URL('../..', import.meta.url));
/** Where the program was built. */
const buildFolder = process.env.SERVER_BUILD || join(sourceFolder, 'build/release');

const waitMilliseconds = 30000;

function somebodyListens() {
  return new Promise((resolve) => {
    const socket = connect(port, '127.0.0.1', () => {
      socket.destroy();
      resolve(true);
    });
    socket.on('error', () => resolve(false));
  });
}

async function until(condition, what) {
  const end = Date.now() + waitMilliseconds;
  while (!await condition()) {
    if (Date.now() > end)
      throw new Error(`${what}: not within ${waitMilliseconds / 1000} s`);
    await sleep(20);
  }
}

export class Server {
  /**
   * @param settings  text of devices.ini; the usual scene is small, which is drawn sooner
   * @param environment  more variables, of its folder
   */
  constructor({ settings = '[cameras]\n1=scene\n[scene]\nsize=640x480\n', environment = () => ({}) } = {}) {
    // No "sh" in the name: such processes are not counted as instances.
    this.folder = mkdtempSync(join(tmpdir(), 'rvo-web-'));
    this.process = null;
    // Copies, not links: a program finds its settings and writes its log beside the real executable.
    for (const program of ['rvowebSocketServer', 'devicehost'])
      copyFileSync(join(buildFolder, program), join(this.folder, program));
    for (const name of ['libdevicestub.so', 'libdoccamera.so', 'libcardreader.so',
      'libportabledoccamera.so', 'libportablecardreader.so', 'libportablevideo.so', 'libportablefaces.so',
      'libportabledocuments.so', 'libportabletransfer.so', 'libimageencoder.so', 'barcodeworker', 'cards', 'fingers', 'models']) {
      if (existsSync(join(buildFolder, name)))
        symlinkSync(join(buildFolder, name), join(this.folder, name));
    }
    writeFileSync(join(this.folder, 'devices.ini'), settings);
    this.environment = environment(this.folder);
  }

  /** Starts it, once the port is free, and waits until it listens. */
  async start() {
    await until(async () => !await somebodyListens(), 'port 1818 to become free');
    let ended = '';
    this.process = spawn(join(this.folder, 'rvowebSocketServer'), ['--simulate'], {
      cwd: this.folder,
      env: { QT_QPA_PLATFORM: 'offscreen', ...process.env, ...this.environment },
      stdio: ['ignore', 'ignore', 'pipe'],
    });
    this.process.stderr.on('data', (text) => { ended += text; });
    await until(() => {
      if (this.process.exitCode !== null)
        throw new Error(`the server has ended: ${ended}`);
      return somebodyListens();
    }, 'the server to listen');
  }

  /** Kills it, as a crash would. */
  async kill() {
    if (!this.process || this.process.exitCode !== null || this.process.signalCode !== null)
      return;
    const ended = new Promise((resolve) => { this.process.once('exit', resolve); });
    this.process.kill('SIGKILL');
    await ended;
  }

  /** Kills it and removes its folder. */
  async end() {
    await this.kill();
    rmSync(this.folder, { recursive: true, force: true });
  }
}

/** Starts a server. */
export async function startServer(options) {
  const server = new Server(options);
  await server.start();
  return server;
}
