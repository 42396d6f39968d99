// Plays one game between two UCI engines the way a match runner does, with
// chess.js as referee. Used by the match workers and by the compliance run.

import { writeFileSync, mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { performance } from 'node:perf_hooks';
import { Chess, START_FEN, playUci, parseInfo, scoreToCp, scoreText, gameOverByRules, positionKey, repetitionCount } from './referee.mjs';
import { EngineFailure, SYNC_TIMEOUT_MS } from './uci-engine.mjs';

const other = (c) => (c === 'w' ? 'b' : 'w');
const colourName = (c) => (c === 'w' ? 'White' : 'Black');

// The go command for the side to move, with the real remaining clocks.
export function goCommand(clock, tc, turn) {
  const ms = (c) => Math.max(1, Math.floor(clock[c]));
  let cmd = `go wtime ${ms('w')} btime ${ms('b')} winc ${tc.incMs} binc ${tc.incMs}`;
  if (tc.moves) cmd += ` movestogo ${clock.movesLeft[turn]}`;
  return cmd;
}

export function positionCommand(startFen, moves) {
  let cmd = startFen ? `position fen ${startFen}` : 'position startpos';
  if (moves.length) cmd += ` moves ${moves.join(' ')}`;
  return cmd;
}

// PGN text: tag pairs, then the moves in SAN with comments, wrapped at 80.
export function pgnText(headers, chess, startFen, notes, result) {
  const esc = (v) => String(v).replace(/\\/g, '\\\\').replace(/"/g, '\\"');
  const out = headers.map(([k, v]) => `[${k} "${esc(v)}"]`);
  const f = startFen.split(' ');
  let num = Number(f[5]) || 1;
  let turn = f[1];
  const tokens = [];
  if (notes[-1]) tokens.push(`{${notes[-1]}}`);
  chess.history().forEach((san, i) => {
    if (turn === 'w') tokens.push(`${num}.`);
    else if (i === 0 || notes[i - 1]) tokens.push(`${num}...`);
    tokens.push(san);
    if (notes[i]) tokens.push(`{${notes[i].replace(/[{}]/g, '')}}`);
    if (turn === 'b') num++;
    turn = other(turn);
  });
  tokens.push(result);
  const lines = [];
  let line = '';
  for (const t of tokens) {
    if (line && line.length + 1 + t.length > 80) {
      lines.push(line);
      line = t;
    } else {
      line = line ? `${line} ${t}` : t;
    }
  }
  if (line) lines.push(line);
  return `${out.join('\n')}\n\n${lines.join('\n')}`;
}

// One search: position + isready/readyok, go, info lines up to bestmove,
// isready/readyok. Nothing is sent between go and bestmove.
// Returns { best, infos, elapsed, goCmd, posCmd }; throws EngineFailure.
export async function search(engine, posCmd, goCmd, remainingMs, stallMarginMs) {
  engine.send(posCmd);
  await engine.sync(SYNC_TIMEOUT_MS);
  const t0 = engine.send(goCmd);
  const deadline = t0 + Math.max(0, remainingMs) + stallMarginMs;
  const { lines, last } = await engine.readUntil((s) => /^bestmove(\s|$)/.test(s.trim()), deadline);
  const elapsed = last.t - t0;
  const best = last.text.trim().split(/\s+/)[1] ?? '';
  const infos = lines.filter((l) => /^info(\s|$)/.test(l.trim()));
  return { best, infos, elapsed, goCmd, posCmd, bestLine: last.text };
}

// Plays a game. job: { gameNo, round, opening: { name, fen, moves },
//   white, black: engine handles { engine (UciEngine), cfg: { name, isVelkor } },
//   tc: { baseMs, incMs, moves, text }, depth (a fixed depth instead of clocks, or 0),
//   maxPlies, resign: { moves, cp },
//   stallMarginMs, event, site, date }
// hooks.onPv(batch): receives the info lines of each search for pv checking.
// The caller has started both engines; this sends ucinewgame itself.
export async function playGame(job, hooks = {}) {
  const t0 = performance.now();
  const sides = { w: job.white, b: job.black };
  const failures = [...(hooks.initialFailures ?? [])];
  const fail = (c, kind, detail, ply) => {
    failures.push({ engine: sides[c].cfg.name, isVelkor: !!sides[c].cfg.isVelkor, colour: c, kind, detail, ply });
  };

  const startFen = job.opening.fen ?? null;
  const chess = new Chess(startFen ?? START_FEN);
  // Every move played on `chess`, opening included: chess.history() would
  // replay the whole game to count them.
  const moves = [...job.opening.moves];
  for (const mv of moves) playUci(chess, mv);
  // notes[i]: comment written after the i-th move of the game (opening included)
  const notes = [];
  const note = (text) => {
    const i = moves.length - 1;
    notes[i] = notes[i] ? `${notes[i]}; ${text}` : text;
  };
  note(`opening: ${job.opening.name}${job.depth ? `; go depth ${job.depth}` : ''}`);
  let repKeys = [positionKey(chess)];

  const tc = job.tc;
  const clock = { w: tc.baseMs, b: tc.baseMs, movesLeft: { w: tc.moves || 0, b: tc.moves || 0 } };
  const lastScores = { w: [], b: [] }; // mover's point of view, most recent last
  let end = null;

  const lose = (c, reason, tag, kind) => ({ result: c === 'w' ? '0-1' : '1-0', reason, tag, kind, winner: other(c) });
  const failKind = (e) => (e.kind === 'stall' ? 'stall' : 'crash');

  // New game for both engines.
  for (const c of ['w', 'b']) {
    try {
      sides[c].engine.send('ucinewgame');
      await sides[c].engine.sync(SYNC_TIMEOUT_MS);
    } catch (e) {
      if (!(e instanceof EngineFailure)) throw e;
      fail(c, e.kind, `at ucinewgame: ${e.message}`, 0);
      end = lose(c, `${sides[c].cfg.name} ${e.kind === 'stall' ? 'stalled' : 'crashed'} at ucinewgame`, e.kind === 'stall' ? 'stalled connection' : 'abandoned', failKind(e));
      break;
    }
  }

  const cpuAtStart = sides.w.engine.cpuMs?.() + sides.b.engine.cpuMs?.();
  let ply = 0;
  while (!end) {
    end = gameOverByRules(chess);
    if (end) break;
    if (moves.length >= job.maxPlies) {
      end = { result: '1/2-1/2', reason: `move cap of ${job.maxPlies} plies`, tag: 'adjudication', kind: 'move cap' };
      break;
    }
    if (job.resign.moves > 0) {
      const r = job.resign;
      const streak = (c, sign) => lastScores[c].length >= r.moves && lastScores[c].slice(-r.moves).every((s) => s !== null && sign * s >= r.cp);
      for (const c of ['w', 'b']) {
        if (streak(c, -1) && streak(other(c), 1)) {
          end = lose(c, `${sides[c].cfg.name} resigns (both engines agree on ${r.cp} cp or more for ${r.moves} moves)`, 'adjudication', 'resignation');
        }
      }
      if (end) break;
    }

    const turn = chess.turn();
    const side = sides[turn];
    const rootFen = chess.fen();
    const posCmd = positionCommand(startFen, moves);
    // A game at a fixed depth has no clocks: each search has the stall margin alone.
    const goCmd = job.depth ? `go depth ${job.depth}` : goCommand(clock, tc, turn);
    let s;
    try {
      s = await search(side.engine, posCmd, goCmd, job.depth ? 0 : clock[turn], job.stallMarginMs);
    } catch (e) {
      if (!(e instanceof EngineFailure)) throw e;
      fail(turn, e.kind, `${e.message} (after "${posCmd}" / "${goCmd}")`, ply);
      end = lose(turn, `${side.cfg.name} ${e.kind === 'stall' ? 'stalled' : 'crashed'}`, e.kind === 'stall' ? 'stalled connection' : 'abandoned', failKind(e));
      break;
    }
    ply++;

    if (hooks.onPv && (ply - 1) % (job.pvSample ?? 1) === 0) {
      const pvLines = s.infos.filter((l) => parseInfo(l).pv?.length);
      if (pvLines.length) hooks.onPv({ engine: side.cfg.name, isVelkor: !!side.cfg.isVelkor, ply: moves.length, rootFen, posCmd, goCmd, lines: pvLines });
    }

    // Score and depth of the search, from its info lines.
    let score = null;
    let depth = null;
    for (const l of s.infos) {
      const inf = parseInfo(l);
      if (inf.score) score = inf.score;
      if (inf.depth !== null && Number.isFinite(inf.depth)) depth = inf.depth;
    }

    // Clock: the whole time from writing go to reading bestmove, no margin.
    if (!job.depth) clock[turn] -= s.elapsed;
    const flagged = clock[turn] < 0;
    if (flagged) {
      fail(turn, 'timeForfeit', `used ${s.elapsed.toFixed(1)} ms with ${(clock[turn] + s.elapsed).toFixed(1)} ms left (after "${posCmd}" / "${goCmd}")`, ply);
    }

    // The move itself.
    if (s.best === '0000' || s.best === '(none)') {
      const claim = gameOverByRules(chess) || repetitionCount(repKeys) >= 3 || chess.isDrawByFiftyMoves();
      if (!claim) {
        fail(turn, 'illegal', `bestmove ${s.best} in a position with legal moves (after "${posCmd}" / "${goCmd}")`, ply);
        end = lose(turn, `${side.cfg.name} plays illegal move ${s.best}`, 'rules infraction', 'illegal move');
      } else if (flagged) {
        end = lose(turn, `${side.cfg.name} loses on time`, 'time forfeit', 'time forfeit');
      } else {
        end = { result: '1/2-1/2', reason: `draw claimed by ${side.cfg.name} (bestmove ${s.best})`, tag: 'normal', kind: 'draw claim' };
      }
      break;
    }
    const mv = playUci(chess, s.best);
    if (!mv) {
      fail(turn, 'illegal', `bestmove ${s.best || '(empty)'} is illegal; line "${s.bestLine}" (after "${posCmd}" / "${goCmd}")`, ply);
      end = lose(turn, `${side.cfg.name} plays illegal move ${s.best || '(empty)'}`, 'rules infraction', 'illegal move');
      break;
    }
    if (flagged) {
      chess.undo();
      end = lose(turn, `${side.cfg.name} loses on time`, 'time forfeit', 'time forfeit');
      break;
    }
    moves.push(s.best);
    note(`${score ? scoreText(score) + '/' : ''}${depth ?? 0} ${(s.elapsed / 1000).toFixed(3)}s`);
    repKeys = mv.captured || mv.piece === 'p' ? [positionKey(chess)] : [...repKeys, positionKey(chess)];

    lastScores[turn].push(scoreToCp(score));
    if (!job.depth) clock[turn] += tc.incMs;
    if (tc.moves && !job.depth) {
      clock.movesLeft[turn]--;
      if (clock.movesLeft[turn] === 0) {
        clock[turn] += tc.baseMs;
        clock.movesLeft[turn] = tc.moves;
      }
    }

    // isready after the bestmove, as match runners do.
    try {
      await side.engine.sync(SYNC_TIMEOUT_MS);
    } catch (e) {
      if (!(e instanceof EngineFailure)) throw e;
      fail(turn, e.kind, `after bestmove: ${e.message}`, ply);
      end = lose(turn, `${side.cfg.name} ${e.kind === 'stall' ? 'stalled' : 'crashed'}`, e.kind === 'stall' ? 'stalled connection' : 'abandoned', failKind(e));
      break;
    }
  }

  // PGN
  const headers = [
    ['Event', job.event],
    ['Site', job.site],
    ['Date', job.date],
    ['Round', String(job.round)],
    ['White', sides.w.cfg.name],
    ['Black', sides.b.cfg.name],
    ['Result', end.result],
  ];
  if (startFen) headers.push(['SetUp', '1'], ['FEN', startFen]);
  headers.push(['TimeControl', job.depth ? '-' : tc.pgn], ['Termination', end.tag], ['Opening', job.opening.name], ['PlyCount', String(moves.length)]);
  note(end.reason);
  const pgn = pgnText(headers, chess, startFen ?? START_FEN, notes, end.result);

  const result = {
    gameNo: job.gameNo,
    round: job.round,
    white: sides.w.cfg.name,
    black: sides.b.cfg.name,
    opening: job.opening.name,
    result: end.result,
    reason: end.reason,
    kind: end.kind ?? end.reason,
    termination: end.tag,
    plies: moves.length,
    failures,
    pgn,
    ms: performance.now() - t0,
    engineCpuMs: Math.max(0, (sides.w.engine.cpuMs?.() + sides.b.engine.cpuMs?.() - cpuAtStart) || 0),
  };
  if (failures.length && job.logDir && hooks.transcript) {
    mkdirSync(job.logDir, { recursive: true });
    const file = join(job.logDir, `game-${String(job.gameNo).padStart(4, '0')}.log`);
    writeFileSync(file, `${pgn}\n\n${failures.map((f) => `${f.engine} (${colourName(f.colour)}) ${f.kind}: ${f.detail}`).join('\n')}\n\n${hooks.transcript().join('\n')}\n`);
    result.logFile = file;
  }
  return result;
}
