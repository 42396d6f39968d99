// The page's side of the engine: a Web Worker running Velkor's WebAssembly
// build, spoken to in UCI a line at a time. Any line that reaches the engine
// during a search ends it, so nothing but the next command (or stop) is
// sent while it thinks: no isready polling. A page served cross-origin
// isolated has shared memory: the engine then runs its faster build without
// turns, and the lines go to it through a ring in shared memory.
import { InputRing } from './engine/ring.mjs';

// Parses an info line into {depth, seldepth, score: {cp|mate, bound}, pv,
// nodes, nps, time}; fields missing from the line are left out.
export function parseInfo(line) {
  const words = line.split(' ');
  const info = {};
  const NUMBERS = ['depth', 'seldepth', 'time', 'nodes', 'nps', 'hashfull', 'currmovenumber'];
  for (let i = 1; i < words.length; i++) {
    const word = words[i];
    if (NUMBERS.includes(word)) {
      info[word] = Number(words[++i]);
    } else if (word === 'score') {
      const kind = words[++i];
      info.score = { [kind]: Number(words[++i]) };
      if (words[i + 1] === 'lowerbound' || words[i + 1] === 'upperbound') info.score.bound = words[++i];
    } else if (word === 'pv') {
      info.pv = [];
      while (i + 1 < words.length && /^[a-h][1-8][a-h][1-8][qrbn]?$/.test(words[i + 1])) info.pv.push(words[++i]);
    } else if (word === 'currmove') {
      info.currmove = words[++i];
    }
  }
  return info;
}

// One engine in its worker. onLine(line) sees every line; onFault(text)
// hears that the engine has ended without being asked to.
export class Engine {
  constructor({ onLine, onFault }) {
    this.onLine = onLine || (() => {});
    this.onFault = onFault || (() => {});
    this.worker = null;
    this.searches = []; // each go sent and not yet answered, oldest first
    this.waiting = null; // {word, resolve}: a handshake line awaited
    this.hashOption = null;
    this.ring = null; // the shared input, when the page has shared memory
  }

  // Starts the worker and has the engine ready: uci, the table's size,
  // isready. Resolves with the milliseconds from start to uciok.
  async start({ args = [], maxMemory, hash }) {
    this.stopWorker();
    const started = performance.now();
    this.worker = new Worker(new URL('./engine/worker.js', import.meta.url));
    this.worker.onmessage = (event) => this.receive(event.data);
    this.worker.onerror = (event) => {
      event.preventDefault();
      this.fault(event.message || 'the worker failed');
    };
    this.ring = globalThis.crossOriginIsolated ? new InputRing() : null;
    this.worker.postMessage({ start: { args, maxMemory, ring: this.ring?.buffer } });
    await this.command('uci', 'uciok');
    const uciok = performance.now() - started;
    if (hash) this.send(`setoption name Hash value ${hash}`);
    await this.command('isready', 'readyok');
    return uciok;
  }

  stopWorker() {
    if (this.worker) this.worker.terminate();
    this.worker = null;
    for (const search of this.searches) search.resolve(null);
    this.searches = [];
    if (this.waiting) this.waiting.reject(new Error('the engine was restarted'));
    this.waiting = null;
  }

  get running() {
    return this.worker !== null;
  }

  get thinking() {
    return this.searches.length > 0;
  }

  send(line) {
    if (!this.worker) return;
    if (this.ring) this.ring.write(line + '\n');
    else this.worker.postMessage(line);
  }

  command(line, answer) {
    return new Promise((resolve, reject) => {
      this.waiting = { word: answer, resolve, reject };
      this.send(line);
    });
  }

  // A search of the position (a start FEN and the moves from it, in
  // coordinates) under the go line's limits. onInfo sees each info line
  // parsed; resolves with the best move in coordinates, '0000' when the
  // game is over, or null when the engine ended first.
  search({ fen, moves, go, onInfo }) {
    const position = `position fen ${fen}${moves.length ? ' moves ' + moves.join(' ') : ''}`;
    return new Promise((resolve) => {
      this.searches.push({ onInfo: onInfo || (() => {}), resolve });
      this.send(position);
      this.send(go);
    });
  }

  // Ends the running search; its promise resolves with the move it had.
  stop() {
    if (this.thinking) this.send('stop');
  }

  receive(message) {
    if (typeof message !== 'string') {
      const text = message.fault ? `it failed (${message.fault})` : `it ended with status ${message.exit}`;
      this.fault(text);
      return;
    }
    this.onLine(message);
    const search = this.searches[0];
    if (message.startsWith('option name Hash ')) this.hashOption = parseOption(message);
    if (search && message.startsWith('info ')) search.onInfo(parseInfo(message));
    if (search && message.startsWith('bestmove ')) {
      this.searches.shift();
      search.resolve(message.split(' ')[1]);
    }
    if (this.waiting && message === this.waiting.word) {
      const { resolve } = this.waiting;
      this.waiting = null;
      resolve();
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
