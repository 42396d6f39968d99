// A game's review: every position of the game searched by Velkor to one
// depth, the moves judged from the scores, each side's accuracy, and the
// game as annotated PGN. The page and velkor-tune review both use this
// module, so that a game reviewed anywhere gets the same marks.
//
// The engine sees one protocol, nothing else: a table of REVIEW_HASH_MB
// cleared at the game's start, then each position of the game in order, the
// first included, as the game's start and the moves that led to it (so that
// it knows the game's repetitions), searched with `go depth N`.
import { Chess } from 'chess.js';
import { wrapMovetext } from './pgn.js';

export const REVIEW_HASH_MB = 32;
// The depth a review searches unless told: a 40-move game in about 10 s in
// a browser, 6 s natively, on a 2-core machine of 2026.
export const REVIEW_DEPTH = 10;
export const MARKS = {
  inaccuracy: { nag: '$6', symbol: '?!', word: 'Inaccuracy' },
  mistake: { nag: '$2', symbol: '?', word: 'Mistake' },
  blunder: { nag: '$4', symbol: '??', word: 'Blunder' },
};
const START = new Chess().fen();
const SHOWN_LINE = 10; // plies of a better line written out

// A reviewed game could not be read or played: its reason, in words.
export class GameRefused extends Error {}

// A review ended before its end, as asked.
export class ReviewCancelled extends Error {}

// The tag pairs of PGN text, in their order.
export function headersOf(text) {
  return [...text.matchAll(/^\s*\[(\w+)\s+"((?:[^"\\]|\\.)*)"\]\s*$/gm)].map((m) => [m[1], m[2].replace(/\\(.)/g, '$1')]);
}

// ---- the game -----------------------------------------------------------

// One game of PGN text: { headers: [[tag, value]...] in their order,
// startFen (null for the standard start), moves: [{ san, uci }] }.
export function readGame(text) {
  const headers = headersOf(text);
  const tag = (name) => headers.find(([key]) => key === name)?.[1];
  const fen = tag('FEN');
  let game;
  try {
    game = new Chess(fen || START);
  } catch (error) {
    throw new GameRefused(`bad FEN "${fen}": ${error.message}`);
  }
  // chess.js reads the moves; the tag pairs, which it cannot always read
  // (escaped quotes), are read here, and only the start goes to it.
  const moveText = text.replace(/\r\n?/g, '\n').replace(/^\s*\[\w+\s+"(?:[^"\\]|\\.)*"\]\s*$/gm, '');
  try {
    game.loadPgn(`${fen ? `[SetUp "1"]\n[FEN "${fen}"]\n\n` : ''}${moveText.trim()}`);
  } catch (error) {
    throw new GameRefused(error.message.replace(/^Invalid move in PGN: /, 'illegal move: '));
  }
  const moves = game.history({ verbose: true }).map((m) => ({ san: m.san, uci: m.from + m.to + (m.promotion || '') }));
  const startFen = fen && fen !== START ? fen : null;
  return { headers, startFen, moves };
}

// ---- the engine's answers ------------------------------------------------

// Searches every position of the game through the client (client/uci.js)
// at the depth. onProgress(done, total) hears each position done. Resolves
// with one answer a position: { score: { cp } or
// { mate } from the side to move's view, or null; over: 'mate', 'pat',
// 'draw' or null; move, pv: the engine's best move and line }.
// `cancelled()` is asked between positions.
export async function searchGame(client, game, { depth, onProgress = () => {}, cancelled = () => false }) {
  if (!Number.isInteger(depth) || depth < 1) throw new TypeError(`the depth must be a whole number of 1 or more: ${depth}`);
  const ready = (line) => line === 'readyok';
  await client.command([`setoption name Hash value ${REVIEW_HASH_MB}`, 'ucinewgame', 'isready'], ready);
  const answers = [];
  const total = game.moves.length + 1;
  for (let i = 0; i < total; i++) {
    const position = { fen: game.startFen || undefined, moves: game.moves.slice(0, i).map((m) => m.uci) };
    if (cancelled()) throw new ReviewCancelled('the review was cancelled');
    const found = await client.search(position, { depth });
    if (cancelled()) throw new ReviewCancelled('the review was cancelled');
    const refused = found.strings.find((text) => /^(Invalid FEN|Illegal move)/.test(text));
    if (refused) throw new GameRefused(`the engine refused position ${i}: ${refused}`);
    const over = found.strings.map((text) => /^Game over \((\w+)\)/.exec(text)?.[1]).find(Boolean) || null;
    answers.push({ score: found.score, over, move: found.move, pv: found.info.pv || (found.move ? [found.move] : []) });
    onProgress(i + 1, total);
  }
  return answers;
}

// ---- the arithmetic ---------------------------------------------------------

// A position's value in White's view: { cp } or { mate } (moves, negative
// when Black mates), from the engine's answers. A position answered without
// a score: the game over counts as a mate by the side that gave it ({ mate:
// 0, winner }), any other end as 0; one legal move takes the value of the
// position after it (the last position, of the one before it).
export function whiteScores(game, answers) {
  const whiteToMove = whiteToMoveAt(game);
  const scores = answers.map((answer, i) => {
    const sign = whiteToMove[i] ? 1 : -1;
    if (answer.over === 'mate') return { mate: 0, winner: whiteToMove[i] ? 'b' : 'w' };
    if (answer.over) return { cp: 0 };
    if (!answer.score) return null;
    return 'mate' in answer.score ? { mate: sign * answer.score.mate } : { cp: sign * answer.score.cp };
  });
  const last = scores.length - 1;
  if (scores[last] === null) {
    let before = last - 1;
    while (before >= 0 && scores[before] === null) before--;
    scores[last] = before >= 0 ? scores[before] : { cp: 0 };
  }
  for (let i = last - 1; i >= 0; i--) if (scores[i] === null) scores[i] = scores[i + 1];
  return scores;
}

function whiteToMoveAt(game) {
  const first = game.startFen ? game.startFen.split(/\s+/)[1] !== 'b' : true;
  return Array.from({ length: game.moves.length + 1 }, (_, i) => (i % 2 === 0) === first);
}

// Centipawns for the arithmetic: kept in ±1000, a mate counts as ±1000.
export function clampedCp(score) {
  if ('mate' in score) return isMateForWhite(score) ? 1000 : -1000;
  return Math.max(-1000, Math.min(1000, score.cp));
}

function isMateForWhite(score) {
  return score.mate === 0 ? score.winner === 'w' : score.mate > 0;
}

// Winning chances, −1 … +1, and Win %, 0 … 100, of a centipawn value.
export const winningChances = (cp) => 2 / (1 + Math.exp(-0.00368208 * cp)) - 1;
export const winPercent = (cp) => 50 + 50 * winningChances(cp);

// The mark of a move from the values before and after it (White's view) for
// the mover ('w' or 'b'); null for none. `mates` is true for the move that
// gives mate.
export function markOf(before, after, mover, mates) {
  if (mates) return null;
  const sign = mover === 'w' ? 1 : -1;
  const mateFor = (score) => 'mate' in score && isMateForWhite(score) === (mover === 'w');
  const mateAgainst = (score) => 'mate' in score && !mateFor(score);
  if (!('mate' in before) && !('mate' in after)) {
    const drop = winningChances(sign * clampedCp(before)) - winningChances(sign * clampedCp(after));
    return drop >= 0.3 ? 'blunder' : drop >= 0.2 ? 'mistake' : drop >= 0.1 ? 'inaccuracy' : null;
  }
  if (mateAgainst(after) && !mateAgainst(before)) {
    if (mateFor(before)) return 'blunder';
    const cp = sign * before.cp;
    return cp < -999 ? 'inaccuracy' : cp < -700 ? 'mistake' : 'blunder';
  }
  if (mateFor(before) && !mateFor(after)) {
    const cp = sign * clampedCp(after);
    return cp > 999 ? 'inaccuracy' : cp > 700 ? 'mistake' : 'blunder';
  }
  return null;
}

// A move's accuracy from the mover's Win % before and after it.
export function moveAccuracy(winBefore, winAfter) {
  const drop = winBefore - winAfter;
  if (drop <= 0) return 100;
  const raw = 103.1668100711649 * Math.exp(-0.04354415386753951 * drop) - 3.166924740191411 + 1;
  return Math.max(0, Math.min(100, raw));
}

function standardDeviation(values) {
  const mean = values.reduce((a, b) => a + b, 0) / values.length;
  return Math.sqrt(values.reduce((a, b) => a + (b - mean) ** 2, 0) / values.length);
}

// Each side's game accuracy: the mean of its move accuracies weighted by
// the game's volatility around each move, and their harmonic mean,
// averaged. null for a side without a move.
export function accuracies(wins, movers) {
  const plies = wins.length - 1;
  const w = Math.max(2, Math.min(8, Math.floor(plies / 10)));
  const windows = [];
  for (let i = 0; i < Math.min(w, wins.length) - 2; i++) windows.push(wins.slice(0, w));
  for (let i = 0; i + w <= wins.length; i++) windows.push(wins.slice(i, i + w));
  const sides = { w: [], b: [] };
  for (let i = 0; i < plies; i++) {
    const sign = movers[i] === 'w' ? 1 : -1;
    const before = 50 + sign * (wins[i] - 50);
    const after = 50 + sign * (wins[i + 1] - 50);
    const weight = Math.max(0.5, Math.min(12, standardDeviation(windows[i])));
    sides[movers[i]].push({ accuracy: moveAccuracy(before, after), weight });
  }
  const of = (moves) => {
    if (!moves.length) return null;
    const weighted = moves.reduce((a, m) => a + m.accuracy * m.weight, 0) / moves.reduce((a, m) => a + m.weight, 0);
    const harmonic = moves.some((m) => m.accuracy === 0) ? 0 : moves.length / moves.reduce((a, m) => a + 1 / m.accuracy, 0);
    return (weighted + harmonic) / 2;
  };
  return { w: of(sides.w), b: of(sides.b) };
}

// The review of a game from the engine's answers: { scores (White's view, a
// position each), moves: [{ san, uci, mover, mark, best, line }],
// white, black: { accuracy, inaccuracies, mistakes, blunders } }.
export function judge(game, answers) {
  const scores = whiteScores(game, answers);
  const turns = whiteToMoveAt(game);
  const wins = scores.map((s) => winPercent(clampedCp(s)));
  const movers = game.moves.map((_, i) => (turns[i] ? 'w' : 'b'));
  const moves = game.moves.map((move, i) => {
    const mates = answers[i + 1].over === 'mate';
    const mark = markOf(scores[i], scores[i + 1], movers[i], mates);
    const better = mark && answers[i].move && answers[i].move !== move.uci;
    return { ...move, mover: movers[i], mark, best: better ? answers[i].move : null, line: better ? answers[i].pv : [] };
  });
  const { w, b } = accuracies(wins, movers);
  const side = (colour, accuracy) => {
    const own = moves.filter((m) => m.mover === colour);
    const count = (mark) => own.filter((m) => m.mark === mark).length;
    return { accuracy: accuracy === null ? null : Math.round(accuracy * 10) / 10, inaccuracies: count('inaccuracy'), mistakes: count('mistake'), blunders: count('blunder') };
  };
  return { scores, moves, white: side('w', w), black: side('b', b) };
}

// ---- the annotated game -------------------------------------------------------

// [%eval] text of a value in White's view: pawns, or #n (negative when
// Black mates); '' for a mate on the board.
export function evalText(score) {
  if ('mate' in score) return score.mate === 0 ? '' : `#${score.mate}`;
  return (score.cp / 100).toFixed(2);
}

// The moves of a line from a position, in SAN (as far as they are legal).
function sanLine(fen, ucis) {
  const board = new Chess(fen);
  const out = [];
  for (const uci of ucis.slice(0, SHOWN_LINE)) {
    try {
      out.push(board.move({ from: uci.slice(0, 2), to: uci.slice(2, 4), promotion: uci[4] }).san);
    } catch {
      break;
    }
  }
  return out;
}

// Move numbers for SAN moves from a position: "12. Nf3 Bg4 13. h3" or
// "12... Bg4 13. h3".
function numbered(fen, sans) {
  const [, turn, , , , full] = fen.split(/\s+/);
  let number = Number(full) || 1;
  let white = turn !== 'b';
  const parts = [];
  sans.forEach((san, i) => {
    if (white) parts.push(`${number}. ${san}`);
    else parts.push(i === 0 ? `${number}... ${san}` : san);
    if (!white) number++;
    white = !white;
  });
  return parts.join(' ');
}

// The game as PGN with the review: its headers as they were, with the
// reviewer, its depth and weights added; after each move its value, its
// mark as a NAG, and for a marked move the better move and its line, as a
// comment and as a variation.
export function annotatedPgn(game, review, { engine, depth, weights }) {
  const added = [['Annotator', engine], ['ReviewDepth', String(depth)], ['ReviewWeights', weights || 'default']];
  const kept = game.headers.filter(([tag]) => !added.some(([name]) => name === tag));
  const result = game.headers.find(([tag]) => tag === 'Result')?.[1] || '*';
  const headers = [...kept, ...added].map(([tag, value]) => `[${tag} "${value.replace(/["\\]/g, '\\$&')}"]`);
  const board = new Chess(game.startFen || START);
  const tokens = [];
  review.moves.forEach((move, i) => {
    const fen = board.fen();
    const number = fen.split(/\s+/)[5];
    if (move.mover === 'w' || i === 0) tokens.push(move.mover === 'w' ? `${number}.` : `${number}...`);
    tokens.push(move.san);
    const after = review.scores[i + 1];
    const evaluation = evalText(after);
    const words = [];
    if (evaluation) words.push(`[%eval ${evaluation}]`);
    if (move.mark) {
      tokens.push(MARKS[move.mark].nag);
      const line = move.best ? sanLine(fen, move.line) : [];
      words.push(line.length ? `${MARKS[move.mark].word}. ${line[0]} was best.` : `${MARKS[move.mark].word}.`);
      tokens.push(`{ ${words.join(' ')} }`);
      if (line.length) tokens.push(`( ${numbered(fen, line)} )`);
      if (move.mover === 'w' && i + 1 < game.moves.length) tokens.push(`${number}...`);
    } else if (words.length) {
      tokens.push(`{ ${words.join(' ')} }`);
      if (move.mover === 'w' && i + 1 < game.moves.length) tokens.push(`${number}...`);
    }
    board.move(move.san);
  });
  tokens.push(result);
  return `${headers.join('\n')}\n\n${wrapMovetext(tokens)}\n`;
}

// The whole review of a game's text: read, searched, judged, annotated.
// Resolves with { game, answers, review, pgn, summary }.
export async function reviewGame(client, text, { depth, engine, weights, onProgress }) {
  const game = readGame(text);
  const answers = await searchGame(client, game, { depth, onProgress });
  const review = judge(game, answers);
  const pgn = annotatedPgn(game, review, { engine, depth, weights });
  return { game, answers, review, pgn, summary: { white: review.white, black: review.black } };
}
