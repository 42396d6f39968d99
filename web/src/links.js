// Links to a position or a game: #fen=FEN opens a position, #pgn=PGN a game
// (at its last position, or at &ply=N), both URL-encoded. The address
// follows the page's position with history.replaceState, so that moving
// through a game adds nothing to the browser's history, and the address is
// always the link to what is on the board.
import { Chess } from './vendor/chess.js/chess.js';

const START = new Chess().fen();

// What the address asks for: {fen}, {pgn, ply} (ply null: the end), or null.
export function readLink(hash = location.hash) {
  const fields = new URLSearchParams(hash.replace(/^#/, ''));
  if (fields.has('fen')) return { fen: fields.get('fen') };
  if (fields.has('pgn')) {
    const ply = fields.get('ply');
    return { pgn: fields.get('pgn'), ply: /^\d+$/.test(ply || '') ? Number(ply) : null };
  }
  return null;
}

// The address's fragment for a start position, its moves (SAN) and the ply
// shown: the bare page for the start position, #fen= for a position without
// moves, else #pgn= with the moves.
export function linkFor(startFen, sans, ply) {
  if (!sans.length) return startFen === START ? '' : `#fen=${encodeURIComponent(startFen)}`;
  const game = new Chess(startFen);
  for (const san of sans) game.move(san);
  const pgn = game
    .pgn()
    .replace(/^\[(?!SetUp|FEN).*\]\n/gm, '')
    .trim();
  return `#pgn=${encodeURIComponent(pgn)}${ply < sans.length ? `&ply=${ply}` : ''}`;
}

// Puts the link in the address bar without a new history entry.
export function followLink(fragment) {
  const url = location.pathname + location.search + fragment;
  if (location.pathname + location.search + location.hash !== url) history.replaceState(history.state, '', url);
}
