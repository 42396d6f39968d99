// The page's engine: Velkor's WebAssembly build in a Web Worker. The page
// posts {start: {args, maxMemory}} once, then one UCI line a message; the
// worker posts each output line as a string, and {exit: status} or
// {fault: text} when the engine has ended.
/* global Velkor */
importScripts('velkor.js');

let engine = null;
const decoder = new TextDecoder('latin1');

onmessage = (event) => {
  const message = event.data;
  if (typeof message === 'string') {
    if (engine) engine.sendInput(message + '\n');
    return;
  }
  if (!message.start || engine) return;
  engine = {
    arguments: message.start.args || [],
    maxMemory: message.start.maxMemory,
    writeLine: (bytes) => postMessage(decoder.decode(bytes.subarray(0, bytes.length - 1))),
    onExit: (status) => postMessage({ exit: status }),
    onAbort: (what) => postMessage({ fault: String(what) }),
  };
  Velkor(engine).catch((error) => postMessage({ fault: String(error) }));
};
