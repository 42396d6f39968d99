// Plays one game between two UCI engines the way a match runner does, with
// chess.js as referee. Used by the match workers and by the compliance run.

import { writeFileSync, mkdirSync } from 'node:fs';
import { join } from 'node:path';
import { performance } from 'node:perf_hooks';
import { wrapMovetext } from '../../../client/pgn.js';
import { Chess, START_FEN, playUci, parseInfo, scoreToCp, scoreText, gameOverByRules, positionKey, repetitionCount, checkBatch, isLegal } from './referee.mjs';
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

// One search: position + isready/readyok, go, info lines up to bestmove.
// Nothing is sent between go and bestmove; the isready after it is the
// caller's. Without a clock (`timed` false) there is no start of a search to
// pin down, and position and go go in one write, as a match runner sends
// them. Returns { best, infos, elapsed, goCmd, posCmd, bestLine }; throws
// EngineFailure.
export async function search(engine, posCmd, goCmd, remainingMs, stallMarginMs, timed = true) {
  let t0;
  if (timed) {
    await engine.sync(SYNC_TIMEOUT_MS, posCmd);
    t0 = engine.send(goCmd);
  } else {
    t0 = engine.send(posCmd, goCmd);
  }
  const deadline = t0 + Math.max(0, remainingMs) + stallMarginMs;
  const { lines, last } = await engine.readUntil((s) => /^bestmove(\s|$)/.test(s.trim()), deadline);
  const elapsed = last.t - t0;
  const best = last.text.trim().split(/\s+/)[1] ?? '';
  const infos = lines.filter((l) => /^info(\s|$)/.test(l.trim()));
  return { best, infos, elapsed, goCmd, posCmd, bestLine: last.text };
}

// Score and depth of a search: the last ones its info lines gave, read
// from the end.
function searchSummary(infos) {
  let score = null;
  let depth = null;
  for (let i = infos.length - 1; i >= 0 && (score === null || depth === null); i--) {
    const inf = parseInfo(infos[i]);
    if (score === null && inf.score) score = inf.score;
    if (depth === null && inf.depth !== null && Number.isFinite(inf.depth)) depth = inf.depth;
  }
  return { score, depth };
}

// One game being played: the board, the clocks, the failures, and how it
// ended (`end`, null while it goes on). playGame below runs the steps in order.
class Game {
  constructor(job, hooks) {
    this.job = job;
    this.hooks = hooks;
    this.t0 = performance.now();
    this.sides = { w: job.white, b: job.black };
    this.failures = [...(hooks.initialFailures ?? [])];
    this.startFen = job.opening.fen ?? null;
    this.chess = new Chess(this.startFen ?? START_FEN);
    // Every move played on `chess`, opening included: chess.history() would
    // replay the whole game to count them.
    this.moves = [...job.opening.moves];
    this.san = this.moves.map((mv) => playUci(this.chess, mv, this.chess._moves({ legal: false }))?.san);
    this.posCmd = positionCommand(this.startFen, this.moves); // grown a move at a time
    // The moves chess.js generates for the position (see playUci), and whether
    // one is legal, once adjudicate has looked.
    this.generated = null;
    this.hasMove = true;
    this.comments = []; // the comment on the position after each ply, if any
    this.comment = ''; // the comment on the last position, made after ply commentPly
    this.commentPly = -1;
    this.note(`opening: ${job.opening.name}${job.depth ? `; go depth ${job.depth}` : ''}`);
    // Position keys since the last capture or pawn move, for a bestmove 0000 claim.
    this.repKeys = [positionKey(this.chess)];
    const tc = job.tc;
    this.clock = { w: tc.baseMs, b: tc.baseMs, movesLeft: { w: tc.moves || 0, b: tc.moves || 0 } };
    this.lastScores = { w: [], b: [] }; // mover's point of view, most recent last
    this.searches = 0; // searches made in this game so far
    this.pvChecked = []; // the pv checks made here, at a fixed depth (see samplePvs)
    this.end = null;
  }

  // A comment after the last move played (or on the start position), for
  // the PGN; braces would end it early. A second comment on the same
  // position is joined to the first.
  note(text) {
    const clean = text.replace(/[{}]/g, '');
    this.comment = this.commentPly === this.moves.length ? `${this.comment}; ${clean}` : clean;
    this.commentPly = this.moves.length;
    this.comments[this.commentPly] = this.comment;
  }

  fail(c, kind, detail, ply) {
    const cfg = this.sides[c].cfg;
    this.failures.push({ engine: cfg.name, isVelkor: !!cfg.isVelkor, colour: c, kind, detail, ply });
  }

  lose(c, reason, tag, kind) {
    this.end = { result: c === 'w' ? '0-1' : '1-0', reason, tag, kind, winner: other(c) };
  }

  // Runs `step`, an exchange with side c's engine. If the engine crashes or
  // stalls, that is a failure on its record and the game is lost: `where` goes
  // into the reason, describe(message) is the failure's detail, and the
  // result is undefined. Any other error is the driver's and goes up.
  async engineStep(c, step, describe, where = '') {
    try {
      return await step();
    } catch (e) {
      if (!(e instanceof EngineFailure)) throw e;
      const stalled = e.kind === 'stall';
      this.fail(c, e.kind, describe(e.message), this.searches);
      this.lose(c, `${this.sides[c].cfg.name} ${stalled ? 'stalled' : 'crashed'}${where}`, stalled ? 'stalled connection' : 'abandoned', stalled ? 'stall' : 'crash');
      return undefined;
    }
  }

  // ucinewgame + isready to both engines, White first.
  async start() {
    for (const c of ['w', 'b']) {
      const engine = this.sides[c].engine;
      await this.engineStep(c, async () => {
        engine.send('ucinewgame');
        await engine.sync(SYNC_TIMEOUT_MS);
      }, (msg) => `at ucinewgame: ${msg}`, ' at ucinewgame');
      if (this.end) return;
    }
  }

  // Ends the game before the next search if the rules, the move cap or
  // resignation (both engines agreeing on the score long enough) say so.
  adjudicate() {
    this.generated = this.chess._moves({ legal: false });
    this.hasMove = this.generated.some((m) => isLegal(this.chess, m));
    this.end = gameOverByRules(this.chess, this.hasMove);
    if (this.end) return;
    const job = this.job;
    if (this.moves.length >= job.maxPlies) {
      this.end = { result: '1/2-1/2', reason: `move cap of ${job.maxPlies} plies`, tag: 'adjudication', kind: 'move cap' };
      return;
    }
    const r = job.resign;
    if (r.moves > 0) {
      const streak = (c, sign) => this.lastScores[c].length >= r.moves && this.lastScores[c].slice(-r.moves).every((s) => s !== null && sign * s >= r.cp);
      for (const c of ['w', 'b']) {
        if (streak(c, -1) && streak(other(c), 1)) {
          this.lose(c, `${this.sides[c].cfg.name} resigns (both engines agree on ${r.cp} cp or more for ${r.moves} moves)`, 'adjudication', 'resignation');
        }
      }
    }
  }

  // The side to move searches its position. Returns the search, with the
  // commands sent and the root position, or undefined if the engine failed.
  async search() {
    const job = this.job;
    const turn = this.chess.turn();
    const posCmd = this.posCmd;
    // A game at a fixed depth has no clocks: each search has the stall margin alone.
    const goCmd = job.depth ? `go depth ${job.depth}` : goCommand(this.clock, job.tc, turn);
    const s = await this.engineStep(turn,
      () => search(this.sides[turn].engine, posCmd, goCmd, job.depth ? 0 : this.clock[turn], job.stallMarginMs, !job.depth),
      (msg) => `${msg} (after "${posCmd}" / "${goCmd}")`);
    if (!s) return undefined;
    this.searches++;
    return { ...s, turn };
  }

  // The pv lines of every pvSample-th search are checked, before its move is
  // played. Under a clock they go to hooks.onPv, the checker that runs apart
  // from the engines; at a fixed depth they are checked here, on the game's
  // own board, and kept in this.pvChecked.
  samplePvs(s) {
    const sample = this.job.pvSample ?? 1;
    if (!sample || (this.searches - 1) % sample !== 0) return;
    const lines = s.infos.filter((l) => parseInfo(l).pv?.length);
    if (!lines.length) return;
    const cfg = this.sides[s.turn].cfg;
    const batch = { engine: cfg.name, isVelkor: !!cfg.isVelkor, ply: this.moves.length, posCmd: s.posCmd, goCmd: s.goCmd, lines };
    if (this.job.depth) this.pvChecked.push(checkBatch(this.chess, this.job.gameNo, batch));
    else this.hooks.onPv?.({ ...batch, rootFen: this.chess.fen() });
  }

  // Takes the search's time off the mover's clock: the whole time from
  // writing go to reading bestmove, no margin. Returns whether it flagged.
  chargeClock(s) {
    const c = s.turn;
    if (!this.job.depth) this.clock[c] -= s.elapsed;
    const flagged = this.clock[c] < 0;
    if (flagged) {
      this.fail(c, 'timeForfeit', `used ${s.elapsed.toFixed(1)} ms with ${(this.clock[c] + s.elapsed).toFixed(1)} ms left (after "${s.posCmd}" / "${s.goCmd}")`, this.searches);
    }
    return flagged;
  }

  // The increment, and a new period once movestogo runs out.
  nextPeriod(c) {
    const { job, clock } = this;
    const tc = job.tc;
    if (!job.depth) clock[c] += tc.incMs;
    if (tc.moves && !job.depth) {
      clock.movesLeft[c]--;
      if (clock.movesLeft[c] === 0) {
        clock[c] += tc.baseMs;
        clock.movesLeft[c] = tc.moves;
      }
    }
  }

  // Plays the search's bestmove, or ends the game: an illegal move, a flag
  // fall, or a null move (0000 or "(none)"), which is a draw claim where the
  // game is over or drawn, and an illegal move anywhere else.
  applyMove(s, flagged) {
    const c = s.turn;
    const name = this.sides[c].cfg.name;
    const after = `(after "${s.posCmd}" / "${s.goCmd}")`;
    if (s.best === '0000' || s.best === '(none)') {
      const claim = gameOverByRules(this.chess, this.hasMove) || repetitionCount(this.repKeys) >= 3 || this.chess.isDrawByFiftyMoves();
      if (!claim) {
        this.fail(c, 'illegal', `bestmove ${s.best} in a position with legal moves ${after}`, this.searches);
        this.lose(c, `${name} plays illegal move ${s.best}`, 'rules infraction', 'illegal move');
      } else if (flagged) {
        this.lose(c, `${name} loses on time`, 'time forfeit', 'time forfeit');
      } else {
        this.end = { result: '1/2-1/2', reason: `draw claimed by ${name} (bestmove ${s.best})`, tag: 'normal', kind: 'draw claim' };
      }
      return;
    }
    const mv = playUci(this.chess, s.best, this.generated);
    if (!mv) {
      this.fail(c, 'illegal', `bestmove ${s.best || '(empty)'} is illegal; line "${s.bestLine}" ${after}`, this.searches);
      this.lose(c, `${name} plays illegal move ${s.best || '(empty)'}`, 'rules infraction', 'illegal move');
      return;
    }
    if (flagged) {
      this.chess.undo();
      this.lose(c, `${name} loses on time`, 'time forfeit', 'time forfeit');
      return;
    }
    const { score, depth } = searchSummary(s.infos);
    this.moves.push(s.best);
    this.san.push(mv.san);
    this.posCmd += `${this.moves.length === 1 ? ' moves' : ''} ${s.best}`;
    this.note(`${score ? scoreText(score) + '/' : ''}${depth ?? 0} ${(s.elapsed / 1000).toFixed(3)}s`);
    this.repKeys = mv.captured || mv.piece === 'p' ? [positionKey(this.chess)] : [...this.repKeys, positionKey(this.chess)];
    this.lastScores[c].push(scoreToCp(score));
    this.nextPeriod(c);
  }

  // isready after the bestmove, as match runners do under a clock.
  async syncAfterMove(c) {
    const engine = this.sides[c].engine;
    await this.engineStep(c, () => engine.sync(SYNC_TIMEOUT_MS), (msg) => `after bestmove: ${msg}`);
  }

  // The game's PGN as chess.js writes it (its tags in chess.js's order, the
  // moves and comments laid out as its pgn() lays them out), from the SAN
  // kept as each move was played rather than by replaying the game; its last
  // comment says how the game ended. Tag values are escaped as PGN wants,
  // which chess.js leaves to its caller. The movetext is wrapped at 80
  // columns, a comment kept whole, and follows the tags after an empty line.
  pgn() {
    const { job, end, chess } = this;
    const esc = (v) => String(v).replace(/\\/g, '\\\\').replace(/"/g, '\\"');
    const tags = {
      Event: job.event,
      Site: job.site,
      Date: job.date,
      Round: job.round,
      White: this.sides.w.cfg.name,
      Black: this.sides.b.cfg.name,
      Result: end.result,
      ...(this.startFen ? { SetUp: '1', FEN: this.startFen } : {}),
      TimeControl: job.depth ? '-' : job.tc.pgn,
      Termination: end.tag,
      Opening: job.opening.name,
      PlyCount: this.moves.length,
    };
    for (const [key, value] of Object.entries(tags)) chess.setHeader(key, esc(value));
    this.note(end.reason);
    const header = Object.entries(chess.getHeaders()).filter(([, value]) => value).map(([key, value]) => `[${key} "${value}"]`);
    return `${header.join('\n')}\n\n${wrapMovetext([...this.movetext(), end.result])}`;
  }

  // The moves with their numbers and comments, a token each.
  movetext() {
    const tokens = [];
    const comment = (ply) => (this.comments[ply] === undefined ? [] : [`{${this.comments[ply]}}`]);
    const start = (this.startFen ?? START_FEN).split(' ');
    let turn = start[1] === 'b' ? 'b' : 'w';
    let number = Number(start[5]) || 1;
    tokens.push(...comment(0));
    this.san.forEach((san, ply) => {
      if (turn === 'w') tokens.push(`${number}.`);
      else if (ply === 0) tokens.push(`${number}.`, '...');
      tokens.push(san, ...comment(ply + 1));
      if (turn === 'b') number++;
      turn = other(turn);
    });
    return tokens;
  }

  // With a failure in the game, its PGN, the failures and the engines'
  // transcript go to a log file; returns the file, or null.
  writeLog(pgn) {
    const { job, failures, hooks } = this;
    if (!failures.length || !job.logDir || !hooks.transcript) return null;
    mkdirSync(job.logDir, { recursive: true });
    const file = join(job.logDir, `game-${String(job.gameNo).padStart(4, '0')}.log`);
    writeFileSync(file, `${pgn}\n\n${failures.map((f) => `${f.engine} (${colourName(f.colour)}) ${f.kind}: ${f.detail}`).join('\n')}\n\n${hooks.transcript().join('\n')}\n`);
    return file;
  }
}

// The CPU time both engines have used so far (NaN with an engine that never started).
const engineCpu = (sides) => sides.w.engine.cpuMs?.() + sides.b.engine.cpuMs?.();

// Plays a game. job: { gameNo, round, opening: { name, fen, moves },
//   white, black: engine handles { engine (UciEngine), cfg: { name, isVelkor } },
//   tc: { baseMs, incMs, moves, pgn (its text) }, depth (a fixed depth instead of clocks, or 0),
//   maxPlies, resign: { moves, cp }, pvSample (the pvs of every Nth search checked; 0: none),
//   stallMarginMs, event, site, date, logDir }
// hooks.onPv(batch): receives the info lines of each sampled search for pv
// checking under a clock; at a fixed depth the result's pvChecked holds the checks.
// hooks.initialFailures: failures found before the game (an engine found dead).
// hooks.transcript(): the engines' transcript, written out with a failure.
// The caller has started both engines; this sends ucinewgame itself.
export async function playGame(job, hooks = {}) {
  const game = new Game(job, hooks);
  await game.start();
  const cpuAtStart = engineCpu(game.sides);
  while (!game.end) {
    game.adjudicate();
    if (game.end) break;
    const s = await game.search();
    if (!s) break;
    game.samplePvs(s);
    game.applyMove(s, game.chargeClock(s));
    if (!game.end && !job.depth) await game.syncAfterMove(s.turn);
  }

  const pgn = game.pgn();
  const { end, sides } = game;
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
    plies: game.moves.length,
    failures: game.failures,
    pgn,
    ms: performance.now() - game.t0,
    engineCpuMs: Math.max(0, (engineCpu(sides) - cpuAtStart) || 0),
    pvChecked: game.pvChecked,
  };
  const logFile = game.writeLog(pgn);
  if (logFile) result.logFile = logFile;
  return result;
}
