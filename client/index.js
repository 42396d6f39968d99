// Velkor for web developers: the engine as WebAssembly in a worker (a Web
// Worker in a browser, a worker thread under Node), behind promises.
//
//   const engine = await loadEngine({ hash: 16 });
//   const info = await engine.analyse({ fen }, { depth: 11 });
//   const { move } = await engine.play({ fen, moves }, { depth: 9 });
//
// analyse and play send only `position` and `go`, so that they answer as the
// native engine answers the same two lines.
import { EngineEnded, UciClient, goLine, parseBestmove, parseInfo, positionLine } from './uci.js';

export { EngineEnded, goLine, parseBestmove, parseInfo, positionLine };

const IS_NODE = typeof process === 'object' && Boolean(process.versions?.node) && typeof window === 'undefined';

// The worker with the engine, and a port to it: its lines go to the client,
// its end (an exit, a fault) ends the client.
async function openWorker(client, start) {
  const forward = (message) => {
    if (typeof message === 'string') client.receive(message);
    else if (message && message.exit !== undefined) client.ended(`the engine exited with status ${message.exit}`);
    else if (message && message.fault) client.ended(`the engine failed: ${message.fault}`);
  };
  if (IS_NODE) {
    const { Worker } = await import('node:worker_threads');
    const worker = new Worker(new URL('./engine/node-worker.cjs', import.meta.url));
    worker.on('message', forward);
    worker.on('error', (error) => client.ended(`the engine failed: ${error.message}`));
    worker.on('exit', (status) => client.ended(`the engine exited with status ${status}`));
    worker.postMessage({ start });
    return { send: (line) => worker.postMessage(line), close: () => worker.terminate() };
  }
  const worker = new Worker(new URL('./engine/worker.js', import.meta.url));
  worker.onmessage = (event) => forward(event.data);
  worker.onerror = (event) => {
    event.preventDefault();
    client.ended(`the engine failed: ${event.message || 'its worker failed'}`);
  };
  worker.postMessage({ start });
  return { send: (line) => worker.postMessage(line), close: () => worker.terminate() };
}

export class Engine {
  constructor(client, close) {
    this.client = client;
    this.close = close;
    this.name = '';
  }

  // The last report with a depth of a search under `limits`: { depth,
  // seldepth, score: { cp } or { mate }, nodes, nps, time, pv }. A position
  // the engine answers without searching (one legal move, the game over)
  // gives { pv: [that move] } or { pv: [] }.
  async analyse(position, limits = {}) {
    const result = refused(await this.client.search(position, limits));
    return reportOf(result);
  }

  // The move the engine plays: { move (null when the game is over), ponder,
  // info }.
  async play(position, limits = {}) {
    const result = refused(await this.client.search(position, limits));
    return { move: result.move, ...(result.ponder ? { ponder: result.ponder } : {}), info: reportOf(result) };
  }

  // A search reported as it goes: `for await (const info of run)` sees each
  // report with a depth; run.stop() ends it; run.result resolves as play's.
  analysis(position, limits = { infinite: true }) {
    const reports = [];
    const waiting = [];
    let finished = false;
    const push = (info) => {
      if (info.depth === undefined || !info.score) return;
      if (waiting.length) waiting.shift()({ value: info, done: false });
      else reports.push(info);
    };
    const finish = () => {
      finished = true;
      while (waiting.length) waiting.shift()({ value: undefined, done: true });
    };
    const result = this.client.search(position, limits, push).then(
      (found) => {
        finish();
        refused(found);
        return { move: found.move, info: reportOf(found) };
      },
      (error) => {
        finish();
        throw error;
      },
    );
    result.catch(() => {});
    return {
      result,
      stop: () => this.client.stop(),
      [Symbol.asyncIterator]: () => ({
        next: () => {
          if (reports.length) return Promise.resolve({ value: reports.shift(), done: false });
          if (finished) return Promise.resolve({ value: undefined, done: true });
          return new Promise((resolve) => waiting.push(resolve));
        },
        return: () => {
          this.client.stop();
          return Promise.resolve({ value: undefined, done: true });
        },
      }),
    };
  }

  // Ends the running search, if any.
  stop() {
    this.client.stop();
  }

  // A new game: the engine clears its table and what its searches keep.
  async newGame() {
    await this.client.command(['ucinewgame', 'isready'], (line) => line === 'readyok');
  }

  async setOption(name, value) {
    if (!/^[A-Za-z][\w ]*$/.test(name) || /[\n\r]/.test(String(value))) throw new TypeError(`bad option ${name}`);
    await this.client.command([`setoption name ${name} value ${value}`, 'isready'], (line) => line === 'readyok');
  }

  // Ends the engine and its worker.
  async quit() {
    if (!this.client.endedWith) {
      await Promise.race([
        this.client.command(['quit'], () => false).catch(() => {}),
        new Promise((resolve) => setTimeout(resolve, 500)),
      ]);
    }
    this.close();
  }
}

// A position the engine did not take (a bad FEN, an illegal move) is an
// error, not the analysis of the position it kept.
export class PositionRefused extends Error {}

function refused(result) {
  const why = result.strings.find((text) => /^(Invalid FEN|Illegal move)/.test(text));
  if (why) throw new PositionRefused(why);
  return result;
}

function reportOf({ move, info }) {
  if (info.depth !== undefined) return info;
  return { pv: move ? [move] : [] };
}

// Starts the engine: { hash } the table in MB (the engine's default is
// 128), { pbil } a string of weights (-pbil=), { maxMemory } the most bytes
// its memory may grow to (a tab on a phone cannot give much).
export async function loadEngine({ hash, pbil, maxMemory } = {}) {
  const client = new UciClient(null);
  const args = pbil ? [`-pbil=${pbil}`] : [];
  const port = await openWorker(client, { args, maxMemory });
  client.port = port;
  const engine = new Engine(client, port.close);
  const lines = await client.command(['uci'], (line) => line === 'uciok');
  engine.name = (lines.find((line) => line.startsWith('id name ')) || '').slice(8);
  if (hash !== undefined) await engine.setOption('Hash', hash);
  else await client.command(['isready'], (line) => line === 'readyok');
  return engine;
}
