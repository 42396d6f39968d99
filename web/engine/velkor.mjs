#!/usr/bin/env node
// Velkor as WebAssembly under Node: the same engine as the native binary,
// speaking UCI on standard input and output, so that match runners, the
// match driver and the tests drive it alike: node velkor.mjs [-pbil=...]
//
// Node always has shared memory, so the engine runs its build without turns
// (velkor-shared.js) in a worker thread and reads its input from a ring
// that this, the main thread, fills from standard input. VELKOR_WEB_BUILD=turns
// runs the build that gives the event loop turns instead, in this thread
// (what a page without shared memory runs; make bench-web times both).
import { readFileSync, writeSync } from 'node:fs';
import { createRequire } from 'node:module';
import { Worker, isMainThread, parentPort, workerData } from 'node:worker_threads';
import { InputRing } from './ring.mjs';

const require = createRequire(import.meta.url);
const shared = (process.env.VELKOR_WEB_BUILD || 'shared') !== 'turns';

// Output goes out a line at a time, in one write each; a reader that has
// gone ends the engine as a closed pipe ends the native one.
function writeLine(bytes) {
  try {
    for (let done = 0; done < bytes.length; ) done += writeSync(1, bytes, done);
  } catch {
    end(0);
  }
}

// The process ends with the engine, from whichever thread runs it.
function end(status) {
  if (isMainThread) process.exit(status);
  parentPort.postMessage({ exit: status });
  // The main thread ends the process; this thread runs nothing more.
  Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0);
}

// A fault inside the engine: one line on standard error, and status 1.
function fault(what) {
  writeSync(2, `velkor: the engine stopped: ${what}\n`);
  end(1);
}

function run(build, args, inputRing) {
  const engine = {
    arguments: args,
    wasmBinary: readFileSync(new URL(`./${build}.wasm`, import.meta.url)),
    inputRing,
    writeLine,
    onExit: end,
    onAbort: fault,
  };
  require(`./${build}.js`)(engine);
  return engine;
}

if (!isMainThread) {
  run('velkor-shared', workerData.args, workerData.ring);
} else if (shared) {
  const ring = new InputRing();
  const worker = new Worker(new URL(import.meta.url), { workerData: { args: process.argv.slice(2), ring: ring.buffer } });
  worker.on('message', (message) => process.exit(message.exit));
  worker.on('error', (error) => fault(error.message));
  worker.on('exit', (status) => process.exit(status));
  process.stdin.on('data', (chunk) => ring.write(chunk));
  process.stdin.on('end', () => ring.end());
} else {
  const engine = run('velkor', process.argv.slice(2));
  process.stdin.on('data', (chunk) => engine.sendInput(chunk));
  process.stdin.on('end', () => engine.endInput());
}
