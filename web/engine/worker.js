// The page's engine: Velkor's WebAssembly build in a Web Worker. The page
// posts {start: {args, maxMemory, ring}} once. Without a ring it then posts
// one UCI line a message, and the worker runs the build that gives its
// event loop turns (velkor.js); with a ring (a SharedArrayBuffer, which
// the page has when it is served cross-origin isolated) it writes its lines
// there, and the worker runs the build without turns (velkor-shared.js),
// which blocks on the ring. The worker posts each output line as a string,
// and {exit: status} or {fault: text} when the engine has ended.
/* global Velkor */
let engine = null;
const decoder = new TextDecoder('latin1');

onmessage = (event) => {
  const message = event.data;
  if (typeof message === 'string') {
    if (engine && engine.sendInput) engine.sendInput(message + '\n');
    return;
  }
  if (!message.start || engine) return;
  const ring = message.start.ring || null;
  importScripts(ring ? 'velkor-shared.js' : 'velkor.js');
  engine = {
    arguments: message.start.args || [],
    maxMemory: message.start.maxMemory,
    inputRing: ring,
    writeLine: (bytes) => postMessage(decoder.decode(bytes.subarray(0, bytes.length - 1))),
    onExit: (status) => postMessage({ exit: status }),
    onAbort: (what) => postMessage({ fault: String(what) }),
  };
  Velkor(engine).catch((error) => postMessage({ fault: String(error) }));
};
