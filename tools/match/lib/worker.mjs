// A match worker thread: owns its own engine processes (kept between games,
// restarted after a crash or a stall) and plays the games it is given.

import { parentPort } from 'node:worker_threads';
import { UciEngine, EngineFailure } from './uci-engine.mjs';
import { playGame } from './game.mjs';

const engines = new Map(); // cfg.key -> UciEngine, the most recently used last
let transcript = [];
// Engines kept beyond the two of the present game: a tuner's matches change
// the tested weights often, the base rarely.
const KEPT = 4;

function track(engine) {
  engine.onSpawn = (pid) => parentPort.postMessage({ type: 'pid', pid, alive: true });
  engine.onExit = (pid) => parentPort.postMessage({ type: 'pid', pid, alive: false });
  return engine;
}

// Returns { engine, died } with a running, handshaken engine for cfg, or
// throws EngineFailure. `died` tells why the engine kept from an earlier game
// was found dead (a crash between games), else null.
async function engineFor(cfg) {
  let e = engines.get(cfg.key);
  if (e && e.alive) {
    engines.delete(cfg.key);
    engines.set(cfg.key, e);
    e.log = transcript;
    return { engine: e, died: null };
  }
  let died = null;
  if (e) {
    died = e.exitText || 'not running';
    await e.kill();
  }
  for (const [key, old] of engines) {
    if (engines.size < KEPT) break;
    engines.delete(key);
    await old.quit();
  }
  e = track(new UciEngine(cfg));
  engines.set(cfg.key, e);
  e.log = transcript;
  e.start();
  try {
    await e.handshake();
  } catch (err) {
    await e.kill();
    engines.delete(cfg.key);
    throw err;
  }
  return { engine: e, died };
}

async function runGame(job) {
  transcript = [];
  const handles = {};
  const initialFailures = [];
  // Start (or reuse) both engines; a failure here loses the game.
  for (const c of ['w', 'b']) {
    const cfg = c === 'w' ? job.whiteCfg : job.blackCfg;
    try {
      const { engine, died } = await engineFor(cfg);
      handles[c] = { engine, cfg };
      if (died) {
        initialFailures.push({ engine: cfg.name, isVelkor: !!cfg.isVelkor, colour: c, kind: 'crash', detail: `found dead after the previous game (${died}); restarted`, ply: 0 });
      }
    } catch (err) {
      if (!(err instanceof EngineFailure)) throw err;
      // The game is still played out (and lost) through a stand-in that
      // fails on first use, so it gets a PGN and is counted like any other.
      const failed = () => {
        throw new EngineFailure(err.kind, `${err.message} (at start-up)`);
      };
      handles[c] = { engine: { send: failed, sync: failed, alive: false }, cfg };
    }
  }
  const result = await playGame(
    { ...job, white: handles.w, black: handles.b },
    {
      onPv: job.pvSample ? (batch) => parentPort.postMessage({ type: 'pv', gameNo: job.gameNo, batch }) : null,
      transcript: () => transcript,
      initialFailures,
    },
  );
  // An engine that stalled is killed; one that crashed is gone. Both are
  // started afresh for the next game.
  for (const f of result.failures) {
    if (f.kind === 'stall' || f.kind === 'crash') {
      const cfg = f.colour === 'w' ? job.whiteCfg : job.blackCfg;
      const e = engines.get(cfg.key);
      if (e) await e.kill();
      engines.delete(cfg.key);
    }
  }
  return result;
}

parentPort.on('message', async (msg) => {
  if (msg.type === 'game') {
    let result;
    try {
      result = await runGame(msg.job);
    } catch (err) {
      result = { gameNo: msg.job.gameNo, internalError: String(err && err.stack ? err.stack : err) };
    }
    parentPort.postMessage({ type: 'result', result });
  } else if (msg.type === 'shutdown') {
    await Promise.all([...engines.values()].map((e) => e.quit()));
    engines.clear();
    parentPort.postMessage({ type: 'bye' });
  }
});
