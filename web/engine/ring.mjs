// The engine's input in shared memory: a ring of bytes in a
// SharedArrayBuffer that the host writes and the engine's build without
// turns reads (library.js), from another thread. The engine blocks on it
// with Atomics.wait while it has nothing to read, and a search sees waiting
// input by comparing two counters, so a stop is heard within 4096 nodes.
// Layout: four int32 counters, then the bytes.
//   [0] bytes written in all, [1] bytes read in all (both wrap at 2^32),
//   [2] 1 once the input has ended, [3] bumped at every write and at the end:
//   the word the engine waits on.
export const RING_BYTES = 1 << 16;
const WRITTEN = 0, READ = 1, ENDED = 2, CHANGED = 3;

export class InputRing {
  constructor() {
    this.buffer = new SharedArrayBuffer(16 + RING_BYTES);
    this.counters = new Int32Array(this.buffer, 0, 4);
    this.bytes = new Uint8Array(this.buffer, 16);
    this.queue = []; // what did not fit yet, Uint8Arrays
    this.ending = false;
    this.timer = null;
  }

  // Bytes (or text) for the engine; what does not fit waits for the engine
  // to read.
  write(data) {
    if (this.ending) return;
    const bytes = typeof data === 'string' ? new TextEncoder().encode(data) : new Uint8Array(data);
    if (bytes.length) this.queue.push(bytes);
    this.flush();
  }

  // The input ends once everything written has gone in.
  end() {
    this.ending = true;
    this.flush();
  }

  flush() {
    const c = this.counters;
    let written = Atomics.load(c, WRITTEN);
    while (this.queue.length) {
      const free = RING_BYTES - ((written - Atomics.load(c, READ)) | 0);
      if (!free) break;
      const chunk = this.queue[0];
      const take = Math.min(free, chunk.length);
      for (let i = 0; i < take; i++) this.bytes[(written + i) & (RING_BYTES - 1)] = chunk[i];
      written = (written + take) | 0;
      if (take === chunk.length) this.queue.shift();
      else this.queue[0] = chunk.subarray(take);
    }
    Atomics.store(c, WRITTEN, written);
    if (this.ending && !this.queue.length) Atomics.store(c, ENDED, 1);
    Atomics.add(c, CHANGED, 1);
    Atomics.notify(c, CHANGED);
    clearTimeout(this.timer);
    this.timer = this.queue.length ? setTimeout(() => this.flush(), 1) : null;
  }
}
