// Referee helpers built on chess.js: move legality in coordinate notation,
// PV checking, the rules that end a game, and the openings file.

import { readFileSync } from 'node:fs';
import { Chess } from 'chess.js';

export { Chess };

export const START_FEN = 'rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1';

const MOVE_RE = /^[a-h][1-8][a-h][1-8][qrbn]?$/;
const FILES = 'abcdefgh';

// Words that can follow a pv in an info line (Velkor prints "time", "nodes",
// ... after the pv). Anything else after "pv" is taken as a move and must be
// legal, so a malformed move inside a pv is reported rather than skipped.
const INFO_KEYWORDS = new Set([
  'depth', 'seldepth', 'time', 'nodes', 'pv', 'multipv', 'score', 'cp', 'mate',
  'lowerbound', 'upperbound', 'currmove', 'currmovenumber', 'hashfull', 'nps',
  'tbhits', 'sbhits', 'cpuload', 'string', 'refutation', 'currline', 'wdl',
]);

// Plays one coordinate-notation move on `chess` if it is legal there, as
// chess.js's move() does (the new position counted for repetitions) but
// without the SAN and the two FENs that move() writes for every move.
// Returns chess.js's own record of the move ({ piece, captured, ... }), or
// null (position unchanged) when illegal. chess.undo() takes it back.
export function playUci(chess, token) {
  const move = legalMove(chess, token);
  if (!move) return null;
  chess._makeMove(move);
  chess._incPositionCount();
  return move;
}

// Splits an info line into its fields of interest.
export function parseInfo(line) {
  const tok = line.trim().split(/\s+/);
  const out = { depth: null, score: null, bound: null, pv: null };
  for (let i = 1; i < tok.length; i++) {
    const t = tok[i];
    if (t === 'string') break; // free text follows
    if (t === 'depth') out.depth = Number(tok[++i]);
    else if (t === 'score') {
      const kind = tok[i + 1];
      const val = Number(tok[i + 2]);
      if ((kind === 'cp' || kind === 'mate') && Number.isFinite(val)) {
        out.score = { kind, value: val };
        i += 2;
      }
    } else if (t === 'lowerbound' || t === 'upperbound') out.bound = t;
    else if (t === 'pv') {
      const pv = [];
      while (i + 1 < tok.length && !INFO_KEYWORDS.has(tok[i + 1])) pv.push(tok[++i]);
      out.pv = pv;
    }
  }
  return out;
}

// A score in centipawns from the mover's point of view (mate = +-100000).
export function scoreToCp(score) {
  if (!score) return null;
  if (score.kind === 'mate') return score.value > 0 ? 100000 - score.value : -100000 - score.value;
  return score.value;
}

export function scoreText(score) {
  if (!score) return '';
  if (score.kind === 'mate') return `${score.value > 0 ? '+' : '-'}M${Math.abs(score.value)}`;
  const v = score.value / 100;
  return `${v >= 0 ? '+' : ''}${v.toFixed(2)}`;
}

// Checks every pv of `lines` (info lines sent for one search) from `root`,
// a FEN or a Chess at the search's root (left as it was found).
// Lines are merged into a tree so a move shared by many pvs is played once.
// Returns [{ line, index, move }] for each line whose pv has an illegal move
// (index = position of the first illegal move in the pv).
export function checkPvs(root, lines) {
  const tree = { kids: new Map(), lines: [] };
  let any = false;
  for (const line of lines) {
    const { pv } = parseInfo(line);
    if (!pv || pv.length === 0) continue;
    any = true;
    let node = tree;
    for (const mv of pv) {
      let kid = node.kids.get(mv);
      if (!kid) {
        kid = { kids: new Map(), lines: [] };
        node.kids.set(mv, kid);
      }
      node = kid;
    }
    node.lines.push(line);
  }
  if (!any) return [];
  const bad = [];
  const chess = typeof root === 'string' ? new Chess(root) : root;
  const collect = (node, acc) => {
    acc.push(...node.lines);
    for (const kid of node.kids.values()) collect(kid, acc);
    return acc;
  };
  const walk = (node, depth) => {
    for (const [mv, kid] of node.kids) {
      if (playPvMove(chess, mv)) {
        try {
          walk(kid, depth + 1);
        } finally {
          chess._undoMove();
        }
      } else {
        for (const line of collect(kid, [])) bad.push({ line, index: depth, move: mv });
      }
    }
  };
  walk(tree, 0);
  return bad;
}

// One search's pvs checked at `root` (as checkPvs takes it), in the form the
// match counts them: { type: 'checked', gameNo, engine, isVelkor, ply, lines
// (how many were checked), bad: [{ line, index, move, ply, posCmd, goCmd, rootFen }] }.
// batch: { engine, isVelkor, ply, posCmd, goCmd, lines }.
export function checkBatch(root, gameNo, batch) {
  let bad;
  try {
    bad = checkPvs(root, batch.lines);
  } catch (err) {
    bad = [{ line: `(pv check error: ${err.message})`, index: -1, move: '' }];
  }
  const rootFen = bad.length ? (typeof root === 'string' ? root : root.fen()) : null;
  const { engine, isVelkor, ply, posCmd, goCmd } = batch;
  return { type: 'checked', gameNo, engine, isVelkor, ply, lines: batch.lines.length, bad: bad.map((x) => ({ ...x, ply, posCmd, goCmd, rootFen })) };
}

// The legal move of `chess` that a coordinate-notation token names, or null.
// It looks at the legal moves of the moving piece alone, through chess.js's
// own move generator under its internal names, pinned with the package
// (checked against chess.js's public move list on millions of tokens); a
// promotion letter must be there exactly when the move promotes.
function legalMove(chess, token) {
  if (typeof token !== 'string' || !MOVE_RE.test(token)) return null;
  const to = token.slice(2, 4);
  for (const m of chess._moves({ square: token.slice(0, 2) })) {
    if (`${FILES[m.to & 7]}${8 - (m.to >> 4)}` === to && m.promotion === token[4]) return m;
  }
  return null;
}

// A pv's move played on `chess` if it is legal there, as playUci decides,
// without counting the position; take it back with chess._undoMove().
export function playPvMove(chess, token) {
  const move = legalMove(chess, token);
  if (move) chess._makeMove(move);
  return move !== null;
}

// Repetition as Velkor counts it: the current position occurring for the
// third time since the last capture or pawn move. `keys` holds the position
// keys (placement, side, castling, e.p.) since the last such move.
export function positionKey(chess) {
  return chess.hash(); // chess.js's key of exactly these
}

export function repetitionCount(keys) {
  if (keys.length === 0) return 0;
  const last = keys[keys.length - 1];
  let n = 0;
  for (const k of keys) if (k === last) n++;
  return n;
}

// The rules that end a game, in the order a referee applies them.
// Returns null while the game goes on.
export function gameOverByRules(chess) {
  // isCheckmate() and isStalemate() would each list the legal moves.
  if (chess._moves().length === 0) {
    if (!chess.isCheck()) return { result: '1/2-1/2', reason: 'stalemate', tag: 'normal' };
    const winner = chess.turn() === 'w' ? 'b' : 'w';
    return { result: winner === 'w' ? '1-0' : '0-1', reason: 'checkmate', tag: 'normal', winner };
  }
  if (chess.isInsufficientMaterial()) return { result: '1/2-1/2', reason: 'insufficient material', tag: 'normal' };
  if (chess.isThreefoldRepetition()) return { result: '1/2-1/2', reason: 'threefold repetition', tag: 'normal' };
  if (chess.isDrawByFiftyMoves()) return { result: '1/2-1/2', reason: 'fifty-move rule', tag: 'normal' };
  return null;
}

// Reads the openings file. Each entry: { name, fen (null = start position),
// moves: [uci...] }. Throws with the line number on any bad entry.
export function loadOpenings(file) {
  const out = [];
  const text = readFileSync(file, 'utf8');
  text.split(/\r?\n/).forEach((raw, i) => {
    const line = raw.trim();
    if (!line || line.startsWith('#')) return;
    const parts = line.split('|').map((s) => s.trim());
    const where = `${file}:${i + 1}`;
    if (parts.length < 2) throw new Error(`${where}: expected "name | moves" or "name | fen ..."`);
    const name = parts[0];
    let fen = null;
    let movesText = parts[1];
    if (/^fen\s/.test(parts[1])) {
      fen = parts[1].slice(4).trim();
      movesText = parts[2] ?? '';
    } else if (parts.length > 2) {
      throw new Error(`${where}: too many fields`);
    }
    let chess;
    try {
      chess = new Chess(fen ?? START_FEN);
    } catch (e) {
      throw new Error(`${where}: bad FEN: ${e.message}`);
    }
    const moves = movesText.split(/\s+/).filter(Boolean);
    for (const mv of moves) {
      if (!playUci(chess, mv)) throw new Error(`${where}: illegal move ${mv} in "${name}"`);
    }
    if (gameOverByRules(chess)) throw new Error(`${where}: "${name}" ends the game`);
    out.push({ name, fen, moves });
  });
  if (out.length === 0) throw new Error(`${file}: no openings`);
  return out;
}
