#!/usr/bin/env node
// Velkor as WebAssembly under Node: the same engine as the native binary,
// speaking UCI on standard input and output, so that match runners, the
// match driver and the tests drive it alike: node velkor.mjs [-pbil=...]
import { readFileSync, writeSync } from 'node:fs';
import { createRequire } from 'node:module';

const require = createRequire(import.meta.url);
const Velkor = require('./velkor.js');

// Output goes out a line at a time, in one write each; a reader that has
// gone ends the engine as a closed pipe ends the native one.
function writeLine(bytes) {
  try {
    for (let done = 0; done < bytes.length; ) done += writeSync(1, bytes, done);
  } catch {
    process.exit(0);
  }
}

const engine = {
  arguments: process.argv.slice(2),
  wasmBinary: readFileSync(new URL('./velkor.wasm', import.meta.url)),
  writeLine,
  onExit: (status) => process.exit(status),
  // A fault inside the engine: one line on standard error, and status 1.
  onAbort: (what) => {
    writeSync(2, `velkor: the engine stopped: ${what}\n`);
    process.exit(1);
  },
};
Velkor(engine);
process.stdin.on('data', (chunk) => engine.sendInput(chunk));
process.stdin.on('end', () => engine.endInput());
