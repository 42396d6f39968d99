// The engine's side of its host. The host (the Node entry, or the page's
// worker) queues input with Module.sendInput(bytes or text), ends it with
// Module.endInput(), and receives every output line, as its bytes without
// the line end, through Module.writeLine(bytes). The engine writes code
// page 437 bytes in its board diagrams, so its output is never decoded as
// UTF-8 on the way. A build without turns (the host has shared memory)
// reads its input from the host's ring instead (Module.inputRing, a
// SharedArrayBuffer laid out as web/engine/ring.mjs writes it).
var velkorInput = {
  chunks: [],        // queued input, Uint8Arrays not yet read
  ended: false,
  wake: null,        // the engine's read, waiting for the host
  line: [],          // output bytes of the line being written
  lastYield: 0,      // performance.now() of the latest yield to the host
  yieldMs: Module['yieldMs'] || 20,  // the longest a search runs without one
  ring: Module['inputRing'] ? {
    counters: new Int32Array(Module['inputRing'], 0, 4),  // written, read, ended, changed
    bytes: new Uint8Array(Module['inputRing'], 16),
  } : null,
};

Module['sendInput'] = function (data) {
  if (velkorInput.ended) return;
  const bytes = typeof data === 'string' ? new TextEncoder().encode(data) : new Uint8Array(data);
  if (bytes.length) velkorInput.chunks.push(bytes);
  if (velkorInput.wake) velkorInput.wake();
};

Module['endInput'] = function () {
  velkorInput.ended = true;
  if (velkorInput.wake) velkorInput.wake();
};
