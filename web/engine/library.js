// The platform functions of the WebAssembly engine (src/engine/input.cpp):
// writing lines out, reading input the host has queued (pre.js), and the test for waiting
// input that a search makes every 4096 nodes. In the build without turns
// the input is a ring in shared memory (ring.mjs) that the engine blocks
// on while it is empty. In the build with turns, both may give the host's
// event loop a turn, which is how a line reaches a running search: the
// engine unwinds and rewinds its stack around the turn (ASYNCIFY). Such a
// function is called a second time as the stack is rewound, and must then
// hand back the value its turn ended with, whatever has arrived since.
mergeInto(LibraryManager.library, {
  // Standard output and error: whole lines, as bytes with their LF, to the
  // host's writeLine.
  fd_write: function (fd, iov, iovcnt, pnum) {
    let written = 0;
    for (let i = 0; i < iovcnt; i++) {
      const ptr = HEAP32[(iov + 8 * i) >> 2], len = HEAP32[(iov + 8 * i + 4) >> 2];
      for (let j = 0; j < len; j++) {
        const byte = HEAPU8[ptr + j];
        velkorInput.line.push(byte);
        if (byte === 10) {
          Module['writeLine'](Uint8Array.from(velkorInput.line));
          velkorInput.line = [];
        }
      }
      written += len;
    }
    HEAP32[pnum >> 2] = written;
    return 0;
  },

  // Copies queued input into the engine's buffer; waits for some while
  // there is none. 0 once the input has ended.
  velkor_read_input: function (buffer, size) {
    const ring = velkorInput.ring;
    if (ring) {
      const c = ring.counters, mask = ring.bytes.length - 1;
      for (;;) {
        const changed = Atomics.load(c, 3), read = Atomics.load(c, 1);
        const waiting = (Atomics.load(c, 0) - read) | 0;
        if (waiting > 0) {
          const n = Math.min(size, waiting);
          for (let i = 0; i < n; i++) HEAPU8[buffer + i] = ring.bytes[(read + i) & mask];
          Atomics.store(c, 1, (read + n) | 0);
          return n;
        }
        if (Atomics.load(c, 2)) return 0;
        Atomics.wait(c, 3, changed);
      }
    }
    const copy = function () {
      let n = 0;
      while (n < size && velkorInput.chunks.length) {
        const chunk = velkorInput.chunks[0];
        const take = Math.min(size - n, chunk.length);
        HEAPU8.set(chunk.subarray(0, take), buffer + n);
        n += take;
        if (take === chunk.length) velkorInput.chunks.shift();
        else velkorInput.chunks[0] = chunk.subarray(take);
      }
      return n;
    };
    if (typeof Asyncify === 'undefined') return copy(); // a build that cannot wait
    if (Asyncify.state === Asyncify.State.Rewinding) return Asyncify.handleSleep(null);
    if (velkorInput.chunks.length || velkorInput.ended) return copy();
    return Asyncify.handleSleep(function (wakeUp) {
      velkorInput.wake = function () {
        velkorInput.wake = null;
        velkorInput.lastYield = performance.now();
        wakeUp(copy());
      };
    });
  },

  // Input waits. At most every yieldMs (pre.js) the host's event loop gets a
  // turn first, so that lines sent since can arrive.
  velkor_input_waiting: function () {
    const ring = velkorInput.ring;
    if (ring) return Atomics.load(ring.counters, 0) !== Atomics.load(ring.counters, 1) ? 1 : 0;
    if (typeof Asyncify === 'undefined') return velkorInput.chunks.length ? 1 : 0;
    if (Asyncify.state === Asyncify.State.Rewinding) return Asyncify.handleSleep(null);
    if (velkorInput.chunks.length) return 1;
    if (velkorInput.ended || performance.now() - velkorInput.lastYield < velkorInput.yieldMs) return 0;
    return Asyncify.handleSleep(function (wakeUp) {
      const resume = function () {
        velkorInput.lastYield = performance.now();
        wakeUp(velkorInput.chunks.length ? 1 : 0);
      };
      if (typeof setImmediate === 'function') {
        setImmediate(resume);
      } else {
        // A worker: a message task, which no timer clamp delays.
        const channel = new MessageChannel();
        channel.port1.onmessage = resume;
        channel.port2.postMessage(0);
      }
    });
  },

  // The most memory the engine may take: the host's cap (a phone's tab
  // gets less than a desktop's), else what 32-bit WebAssembly can address.
  // A hash table that doesn't fit under it is halved until it does.
  emscripten_get_heap_max: function () {
    return Module['maxMemory'] || 2147483648;
  },

  velkor_input_ended: function () {
    const ring = velkorInput.ring;
    if (ring) return Atomics.load(ring.counters, 2) && Atomics.load(ring.counters, 0) === Atomics.load(ring.counters, 1) ? 1 : 0;
    return velkorInput.ended && !velkorInput.chunks.length ? 1 : 0;
  },
});
