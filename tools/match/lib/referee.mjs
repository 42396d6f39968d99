// Referee helpers built on chess.js: move legality in coordinate notation,
// PV checking, the rules that end a game, and the openings file.

import { readFileSync } from 'node:fs';
import { Chess } from 'chess.js';
import { parseInfo } from '../../../client/uci.js';

// Info lines are read by the engine's one client, as the page reads them.
export { Chess, parseInfo };

export const START_FEN = 'rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1';

const MOVE_RE = /^[a-h][1-8][a-h][1-8][qrbn]?$/;

// Plays one coordinate-notation move on `chess` if it is legal there, as
// chess.js's move() does (the new position counted for repetitions) but
// without the SAN and the two FENs that move() writes for every move.
// Returns chess.js's own record of the move ({ piece, captured, ... }), or
// null (position unchanged) when illegal. chess.undo() takes it back.
// Given `moves`, all the moves of the position that chess.js generates
// before it drops those that leave the king attacked, it looks the move up
// there rather than generating them again, and the record also has the
// move's SAN (`san`), told apart from the legal moves of its kind to its
// square as chess.js's move() tells it.
export function playUci(chess, token, moves) {
  const move = legalMove(chess, token, moves);
  if (!move) return null;
  if (moves) {
    const rivals = moves.filter((m) => m.to === move.to && m.piece === move.piece && m.from !== move.from && isLegal(chess, m));
    move.san = chess._moveToSan(move, rivals);
  }
  chess._makeMove(move);
  chess._incPositionCount();
  return move;
}

// A score in centipawns from the mover's point of view (mate = +-100000).
export function scoreToCp(score) {
  if (!score) return null;
  if (score.mate !== undefined) return score.mate > 0 ? 100000 - score.mate : -100000 - score.mate;
  return score.cp;
}

export function scoreText(score) {
  if (!score) return '';
  if (score.mate !== undefined) return `${score.mate > 0 ? '+' : '-'}M${Math.abs(score.mate)}`;
  const v = score.cp / 100;
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
// It looks among `moves` (as playUci takes them) or else among the moves of
// the moving piece, and only the named one is tried for the king's safety,
// through chess.js's own move generator under its internal names, pinned
// with the package (checked against chess.js's public move list on millions
// of tokens); a promotion letter must be there exactly when the move
// promotes.
function legalMove(chess, token, moves) {
  if (typeof token !== 'string' || !MOVE_RE.test(token)) return null;
  // chess.js's squares: 16 a rank from a8, a file 1.
  const from = (56 - token.charCodeAt(1)) * 16 + token.charCodeAt(0) - 97;
  const to = (56 - token.charCodeAt(3)) * 16 + token.charCodeAt(2) - 97;
  const named = (m) => m.to === to && m.from === from && m.promotion === token[4];
  const move = (moves ?? chess._moves({ square: token.slice(0, 2), legal: false })).find(named);
  return move && isLegal(chess, move) ? move : null;
}

// Whether one of chess.js's generated moves of `chess` leaves the mover's
// king safe.
export function isLegal(chess, move) {
  const us = chess.turn();
  chess._makeMove(move);
  const safe = !chess._isKingAttacked(us);
  chess._undoMove();
  return safe;
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

// The rules that end a game, in the order a referee applies them, told
// whether the side to move has a legal move if the caller knows. Returns
// null while the game goes on.
export function gameOverByRules(chess, hasMove = chess._moves().length > 0) {
  // isCheckmate() and isStalemate() would each list the legal moves.
  if (!hasMove) {
    if (!chess.isCheck()) return { result: '1/2-1/2', reason: 'stalemate', tag: 'normal' };
    const winner = chess.turn() === 'w' ? 'b' : 'w';
    return { result: winner === 'w' ? '1-0' : '0-1', reason: 'checkmate', tag: 'normal', winner };
  }
  if (chess.isInsufficientMaterial()) return { result: '1/2-1/2', reason: 'insufficient material', tag: 'normal' };
  if (chess.isThreefoldRepetition()) return { result: '1/2-1/2', reason: 'threefold repetition', tag: 'normal' };
  if (chess.isDrawByFiftyMoves()) return { result: '1/2-1/2', reason: 'fifty-move rule', tag: 'normal' };
  return null;
}

// Reads a file of openings, each entry { name, fen (null = start position),
// moves: [uci...] }, by its extension: `.epd` an EPD book (a position a line),
// `.pgn` a PGN book (the final position of each game), anything else the
// driver's own lines. Every position is checked: a legal one, in which the
// game goes on. Throws with the file and line (or game) of a bad entry.
export function loadOpenings(file) {
  const text = readFileSync(file, 'utf8');
  const out = file.endsWith('.epd') ? epdBook(text, file) : file.endsWith('.pgn') ? pgnBook(text, file) : openingLines(text, file);
  if (out.length === 0) throw new Error(`${file}: no openings`);
  return out;
}

const baseName = (file) => file.split('/').pop();

// A chess.js board on a FEN that must be a legal position: chess.js's own
// checks, and the side that has just moved not in check.
function legalBoard(fen, where) {
  let chess;
  try {
    chess = new Chess(fen);
  } catch (e) {
    throw new Error(`${where}: bad FEN: ${e.message}`);
  }
  const mover = chess.turn() === 'w' ? 'b' : 'w';
  if (chess.isAttacked(chess.findPiece({ type: 'k', color: mover })[0], chess.turn())) {
    throw new Error(`${where}: bad FEN: the side not to move is in check`);
  }
  return chess;
}

function openingLines(text, file) {
  const out = [];
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
    const chess = legalBoard(fen ?? START_FEN, where);
    const moves = movesText.split(/\s+/).filter(Boolean);
    for (const mv of moves) {
      if (!playUci(chess, mv)) throw new Error(`${where}: illegal move ${mv} in "${name}"`);
    }
    if (gameOverByRules(chess)) throw new Error(`${where}: "${name}" ends the game`);
    out.push({ name, fen, moves });
  });
  return out;
}

// The operations of an EPD line after its position ("ce 23; id \"x\";"):
// opcode and operands, each ended by a semicolon; a quoted operand may hold one.
export function epdOperations(text, where) {
  const ops = {};
  let k = 0;
  while (k < text.length) {
    const m = /^\s*([A-Za-z][A-Za-z0-9_]*)/.exec(text.slice(k));
    if (!m) {
      if (!text.slice(k).trim()) break;
      throw new Error(`${where}: bad EPD operation at "${text.slice(k).trim()}"`);
    }
    k += m[0].length;
    const operands = [];
    for (;;) {
      const rest = text.slice(k);
      const q = /^\s*"([^"]*)"/.exec(rest) ?? /^\s*([^\s;"]+)/.exec(rest);
      if (q) {
        operands.push(q[1]);
        k += q[0].length;
        continue;
      }
      const end = /^\s*;/.exec(rest);
      if (!end) throw new Error(`${where}: EPD operation "${m[1]}" is not ended by ";"`);
      k += end[0].length;
      break;
    }
    ops[m[1]] = operands;
  }
  return ops;
}

// An EPD book: placement, side, castling and en passant, then either the two
// counters of a FEN or EPD operations (hmvc and fmvn give the counters; id,
// when there, names the opening).
function epdBook(text, file) {
  const out = [];
  text.split(/\r?\n/).forEach((raw, i) => {
    const line = raw.trim();
    if (!line || line.startsWith('#')) return;
    const where = `${file}:${i + 1}`;
    const fields = line.split(/\s+/);
    if (fields.length < 4) throw new Error(`${where}: an EPD line starts with placement, side, castling and en passant`);
    let rest = line.replace(/^(\S+\s+){3}\S+\s*/, '');
    let counters = ['0', '1'];
    const full = /^(\d+)\s+(\d+)\s*(.*)$/.exec(rest);
    if (full) [, counters[0], counters[1], rest] = full;
    const ops = epdOperations(rest, where);
    counters = [ops.hmvc?.[0] ?? counters[0], ops.fmvn?.[0] ?? counters[1]];
    const fen = [...fields.slice(0, 4), ...counters].join(' ');
    const chess = legalBoard(fen, where);
    if (gameOverByRules(chess)) throw new Error(`${where}: the position ends the game`);
    out.push({ name: ops.id?.[0] ?? `${baseName(file)}:${i + 1}`, fen, moves: [] });
  });
  return out;
}

// A PGN book: the position at the end of each game (its tags start a new game
// after movetext).
function pgnBook(text, file) {
  const games = [];
  let lines = [];
  let moves = false;
  for (const line of text.split(/\r?\n/)) {
    const tag = line.startsWith('[');
    if (tag && moves) {
      games.push(lines.join('\n'));
      lines = [];
      moves = false;
    }
    if (!tag && line.trim()) moves = true;
    lines.push(line);
  }
  if (lines.some((l) => l.trim())) games.push(lines.join('\n'));
  return games.map((game, k) => {
    const where = `${file}: game ${k + 1}`;
    const chess = new Chess();
    try {
      chess.loadPgn(game);
    } catch (e) {
      throw new Error(`${where}: ${e.message}`);
    }
    const fen = chess.fen();
    if (gameOverByRules(legalBoard(fen, where))) throw new Error(`${where}: the final position ends the game`);
    return { name: `${baseName(file)} game ${k + 1}`, fen, moves: [] };
  });
}
