// The engine under Node for the package: Velkor's WebAssembly build in a
// worker thread. It takes the messages of the page's worker (web/engine/worker.js):
// {start: {args, maxMemory}} once, then one UCI line a message; it posts each
// output line as a string, and {exit: status} or {fault: text} at its end.
'use strict';
const { parentPort } = require('node:worker_threads');
const { readFileSync } = require('node:fs');
const { join } = require('node:path');
const Velkor = require('./velkor.js');

let engine = null;
const decoder = new TextDecoder('latin1');

parentPort.on('message', (message) => {
  if (typeof message === 'string') {
    if (engine) engine.sendInput(message + '\n');
    return;
  }
  if (!message || !message.start || engine) return;
  engine = {
    arguments: message.start.args || [],
    maxMemory: message.start.maxMemory,
    wasmBinary: readFileSync(join(__dirname, 'velkor.wasm')),
    writeLine: (bytes) => parentPort.postMessage(decoder.decode(bytes.subarray(0, bytes.length - 1))),
    onExit: (status) => {
      parentPort.postMessage({ exit: status });
      process.exit(status);
    },
    onAbort: (what) => parentPort.postMessage({ fault: String(what) }),
  };
  Velkor(engine).catch((error) => parentPort.postMessage({ fault: String(error) }));
});
