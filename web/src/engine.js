// The page's side of the engine: a Web Worker running Velkor's WebAssembly
// build, spoken to through the engine's one client (client/uci.js), whose
// queue sends nothing during a search but stop: no isready polling. A page
// served cross-origin isolated has shared memory: the engine then runs its
// faster build without turns, and the lines go to it through a ring in
// shared memory.
import { EngineEnded, UciClient, parseInfo } from './client/uci.js';
import { InputRing } from './engine/ring.mjs';

export { parseInfo };

// "go depth 5", "go wtime 1000 btime 900" as the client's limits.
function limitsOf(go) {
  const words = go.trim().split(/\s+/).slice(1);
  if (words[0] === 'infinite') return { infinite: true };
  const limits = {};
  for (let i = 0; i + 1 < words.length; i += 2) limits[words[i]] = Number(words[i + 1]);
  return limits;
}

// One engine in its worker. onLine(line) sees every line; onFault(text)
// hears that the engine has ended without being asked to.
export class Engine {
  constructor({ onLine, onFault }) {
    this.onLine = onLine || (() => {});
    this.onFault = onFault || (() => {});
    this.worker = null;
    this.client = null;
    this.hashOption = null;
    this.busy = false; // a review has the engine to itself
    this.ring = null; // the shared input, when the page has shared memory
  }

  // Starts the worker and has the engine ready: uci, the table's size,
  // isready. Resolves with the milliseconds from start to uciok.
  async start({ args = [], maxMemory, hash }) {
    this.stopWorker();
    const started = performance.now();
    const worker = new Worker(new URL('./engine/worker.js', import.meta.url));
    const ring = globalThis.crossOriginIsolated ? new InputRing() : null;
    const client = new UciClient({ send: (line) => (ring ? ring.write(line + '\n') : worker.postMessage(line)) });
    this.ring = ring;
    this.worker = worker;
    this.client = client;
    client.onLine = (line) => {
      if (line.startsWith('option name Hash ')) this.hashOption = parseOption(line);
      this.onLine(line);
    };
    worker.onmessage = (event) => {
      const message = event.data;
      if (typeof message === 'string') client.receive(message);
      else this.fault(message.fault ? `it failed (${message.fault})` : `it ended with status ${message.exit}`);
    };
    worker.onerror = (event) => {
      event.preventDefault();
      this.fault(event.message || 'the worker failed');
    };
    worker.postMessage({ start: { args, maxMemory, ring: ring?.buffer } });
    const lines = await client.command(['uci'], (line) => line === 'uciok');
    this.name = (lines.find((line) => line.startsWith('id name ')) || '').slice(8);
    const uciok = performance.now() - started;
    await client.command([...(hash ? [`setoption name Hash value ${hash}`] : []), 'isready'], (line) => line === 'readyok');
    return uciok;
  }

  stopWorker() {
    if (this.worker) this.worker.terminate();
    if (this.client) this.client.ended('the engine was restarted');
    this.worker = null;
    this.client = null;
  }

  get running() {
    return this.worker !== null;
  }

  get thinking() {
    return Boolean(this.client && this.client.searching);
  }

  // A line with no answer, sent in its turn.
  send(line) {
    if (this.client) this.client.post([line]).catch(() => {});
  }

  // A search of the position (a start FEN and the moves from it, in
  // coordinates) under the go line's limits, in place of any search still
  // running or waiting. onInfo sees each info line parsed; resolves with the
  // best move in coordinates, '0000' when the game is over, or null when
  // the engine ended first or a newer search replaced this one.
  async search({ fen, moves, go, onInfo }) {
    if (!this.client || this.busy) return null;
    this.client.supersede();
    try {
      const { move, skipped } = await this.client.search({ fen, moves }, limitsOf(go), onInfo);
      if (skipped) return null;
      return move || '0000';
    } catch (error) {
      if (error instanceof EngineEnded) return null;
      throw error;
    }
  }

  // Ends the running search; its promise resolves with the move it had.
  stop() {
    if (this.client && !this.busy) this.client.stop();
  }

  // Work that has the engine to itself, through its client (a game's
  // review): meanwhile the page's searches wait (search resolves with null)
  // and its stop leaves the work alone.
  async exclusive(work) {
    if (!this.client || this.busy) return null;
    this.busy = true;
    try {
      return await work(this.client);
    } finally {
      this.busy = false;
    }
  }

  fault(text) {
    this.stopWorker();
    this.onFault(text);
  }
}

// "option name Hash type spin default 128 min 1 max 65536" as numbers.
function parseOption(line) {
  const words = line.split(' ');
  const value = (name) => Number(words[words.indexOf(name) + 1]);
  return { default: value('default'), min: value('min'), max: value('max') };
}
