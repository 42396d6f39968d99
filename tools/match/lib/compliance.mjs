// The protocol checks a match runner makes before a match, run against Velkor.
// Every check has a name; a failed check is reported with what was seen.

import { performance } from 'node:perf_hooks';
import { UciEngine, EngineFailure, SYNC_TIMEOUT_MS } from './uci-engine.mjs';
import { Chess, START_FEN, playUci, parseInfo, checkPvs } from './referee.mjs';
import { search, playGame } from './game.mjs';

const STALL_MARGIN_MS = 10000;
const TEST_FEN = 'r3k2r/pppq1ppp/2npbn2/4p3/4P3/2NPBN2/PPPQ1PPP/R3K2R w KQkq - 0 1';

export async function runCompliance(cfg, { onCheck = () => {} } = {}) {
  const checks = [];
  const transcript = [];
  const check = (name, ok, detail = '') => {
    const c = { name, ok: !!ok, detail: ok ? '' : detail };
    checks.push(c);
    onCheck(c);
    return c.ok;
  };

  let engine = new UciEngine(cfg);
  engine.log = transcript;
  const t0 = performance.now();

  // Restarts the engine when an earlier step killed it, so one failure does
  // not hide the later checks.
  const ensure = async () => {
    if (engine.alive) return;
    await engine.kill();
    engine = new UciEngine(cfg);
    engine.log = transcript;
    engine.start();
    await engine.handshake();
  };
  // Describes a failure; the engine is killed so the next step starts afresh.
  const fails = (e) => {
    engine.kill();
    return e instanceof EngineFailure ? `${e.kind}: ${e.message}` : String(e);
  };

  // uci
  engine.start();
  try {
    const t = engine.send('uci');
    const { lines } = await engine.readUntil((s) => s.trim() === 'uciok', t + SYNC_TIMEOUT_MS);
    check('uci answers uciok', true);
    const idName = lines.map((l) => /^id\s+name\s+(.+)$/.exec(l.trim())).find(Boolean);
    const idAuthor = lines.map((l) => /^id\s+author\s+(.+)$/.exec(l.trim())).find(Boolean);
    check('uci gives id name', idName, 'no "id name" line before uciok');
    check('uci gives id author', idAuthor, 'no "id author" line before uciok');
  } catch (e) {
    check('uci answers uciok', false, fails(e));
    check('uci gives id name', false, 'no uciok');
    check('uci gives id author', false, 'no uciok');
  }

  // isready
  try {
    await ensure();
    await engine.sync();
    check('isready answers readyok', true);
  } catch (e) {
    check('isready answers readyok', false, fails(e));
  }

  // Commands that must be taken silently (bad input gives "info string").
  const silent = async (name, cmd) => {
    try {
      await ensure();
      engine.send(cmd);
      const lines = await engine.sync();
      const complaints = lines.filter((l) => /^info\s+string/.test(l.trim()));
      check(name, complaints.length === 0, `engine answered: ${complaints.join(' | ')}`);
    } catch (e) {
      check(name, false, fails(e));
    }
  };
  await silent('ucinewgame accepted', 'ucinewgame');
  await silent('position startpos accepted', 'position startpos');
  await silent('position fen accepted', `position fen ${TEST_FEN}`);

  // go on the clock; the position is sent again before each go, as in a match.
  const goCheck = async (name, startFen, moves, goCmd, remainingMs, { wantScore = false } = {}) => {
    const posCmd = (startFen ? `position fen ${startFen}` : 'position startpos') + (moves.length ? ` moves ${moves.join(' ')}` : '');
    const chess = new Chess(startFen ?? START_FEN);
    for (const m of moves) playUci(chess, m);
    let s;
    try {
      await ensure();
      s = await search(engine, posCmd, goCmd, remainingMs, STALL_MARGIN_MS);
      await engine.sync();
    } catch (e) {
      check(`${name}: legal bestmove`, false, `${fails(e)} (after "${posCmd}")`);
      check(`${name}: answered within the clock`, false, 'no bestmove');
      return;
    }
    const legal = playUci(new Chess(chess.fen()), s.best);
    check(`${name}: legal bestmove`, legal, `got "${s.bestLine}" after "${posCmd}"`);
    if (wantScore) {
      const scored = s.infos.some((l) => parseInfo(l).score);
      check(`${name}: info with a score before bestmove`, scored, `info lines seen: ${s.infos.length}`);
    }
    const bad = checkPvs(chess.fen(), s.infos);
    check(`${name}: every pv legal`, bad.length === 0, bad.slice(0, 3).map((b) => `move ${b.index + 1} "${b.move}" in "${b.line}"`).join(' | '));
    check(`${name}: answered within the clock`, s.elapsed <= remainingMs, `took ${s.elapsed.toFixed(1)} ms of ${remainingMs} ms`);
  };
  await goCheck('go wtime 100 (White to move)', TEST_FEN, [], 'go wtime 100', 100, { wantScore: true });
  await goCheck('go btime 100 (Black to move)', null, ['e2e4'], 'go btime 100', 100, { wantScore: true });
  await goCheck('go wtime 1000 btime 1000 winc 100 binc 100', null, [], 'go wtime 1000 btime 1000 winc 100 binc 100', 1000);
  await goCheck('go winc 100 binc 100 wtime 1000 btime 1000', null, ['g1f3', 'd7d5'], 'go winc 100 binc 100 wtime 1000 btime 1000', 1000);

  // A short game against itself from 1.e4 e5, on a 2 s + 0.1 s clock.
  {
    const name = 'short game from e2e4 e7e5';
    try {
      await ensure();
      const h = { engine, cfg: { name: cfg.name, isVelkor: true } };
      const pvBad = [];
      const res = await playGame(
        {
          gameNo: 0,
          round: 0,
          opening: { name: 'e2e4 e7e5', fen: null, moves: ['e2e4', 'e7e5'] },
          white: h,
          black: h,
          tc: { baseMs: 2000, incMs: 100, moves: 0, pgn: '2+0.1' },
          maxPlies: 10,
          resign: { moves: 0, cp: 0 },
          stallMarginMs: STALL_MARGIN_MS,
          event: 'compliance',
          site: '?',
          date: '????.??.??',
        },
        { onPv: (b) => pvBad.push(...checkPvs(b.rootFen, b.lines)) },
      );
      const of = (kind) => res.failures.filter((f) => f.kind === kind).map((f) => f.detail).join(' | ');
      check(`${name}: all moves legal`, !of('illegal'), of('illegal'));
      check(`${name}: no time forfeit`, !of('timeForfeit'), of('timeForfeit'));
      check(`${name}: no crash or stall`, !of('crash') && !of('stall'), `${of('crash')} ${of('stall')}`.trim());
      check(`${name}: every pv legal`, pvBad.length === 0, pvBad.slice(0, 3).map((b) => `ply ${b.ply}: move ${b.index + 1} "${b.move}" in "${b.line}"`).join(' | '));
      check(`${name}: 8 moves played`, res.plies >= 10 || res.termination === 'normal', `ended after ${res.plies} plies: ${res.reason}`);
    } catch (e) {
      check(`${name}: all moves legal`, false, fails(e));
    }
  }

  // quit
  try {
    await ensure();
    const exited = new Promise((resolve) => engine.proc.once('exit', () => resolve(true)));
    engine.send('quit');
    const ok = await Promise.race([exited, new Promise((r) => setTimeout(() => r(false), 2000))]);
    check('quit ends the engine', ok, 'still running 2 s after quit');
  } catch (e) {
    check('quit ends the engine', false, fails(e));
  }
  await engine.kill();

  return { checks, transcript, ms: performance.now() - t0 };
}
