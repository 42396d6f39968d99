// Threat mode: what the side that has just moved threatens, found by
// searching the same position with the other side to move (no en passant
// capture is possible then). Not offered when the side to move is in check:
// the other side to move would be able to take the king.
import { Chess } from './vendor/chess.js/chess.js';

// The FEN with the other side to move, or null when there is none.
export function threatFen(fen) {
  const game = new Chess(fen);
  if (game.isCheck() || game.isGameOver()) return null;
  const fields = fen.split(' ');
  fields[1] = fields[1] === 'w' ? 'b' : 'w';
  fields[3] = '-';
  try {
    return new Chess(fields.join(' ')).fen();
  } catch {
    return null;
  }
}
