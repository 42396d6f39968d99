// Analysis's limits and its endings. A search runs until stopped, to a
// depth, or for a time; "go deeper" carries on the latest one, whose work
// the engine's table keeps: two plies deeper than it reached, or as long
// again. A search can also end at once, before any depth is reported: the
// game is over, or there is one legal move; or at depth 1, with a mate.
const NAMES = { w: 'White', b: 'Black' };

// The go line for the limit chosen ('infinite', 'depth', 'movetime') and
// its field, carrying on `last` ({depth, go}) when given; or {error}.
export function analysisGo(kind, text, last) {
  if (kind === 'infinite') return { go: 'go infinite' };
  if (kind === 'depth') {
    if (!/^[1-9][0-9]?$/.test(text)) return { error: 'The depth is a whole number of plies from 1 to 99.' };
    return { go: `go depth ${last ? Math.min(99, Math.max(Number(text), last.depth + 2)) : Number(text)}` };
  }
  const seconds = Number(text);
  if (!text || !(seconds > 0 && seconds <= 3600)) return { error: 'The time is a number of seconds, such as 5 or 0.5.' };
  return { go: `go movetime ${Math.round(seconds * 1000)}` };
}

// What the panel says once a search has ended with `move` in the position
// `root` (a chess.js game), after the depth and score it last reported:
// {text, pv: true when the move alone is the principal variation}.
export function endNote(move, root, { depth, score }) {
  if (move === '0000' || root.isGameOver()) {
    if (root.isCheckmate()) return { text: `Checkmate: ${NAMES[root.turn() === 'w' ? 'b' : 'w']} has won; there is nothing to search.` };
    if (root.isStalemate()) return { text: 'Stalemate: there is nothing to search.' };
    return { text: 'The game is drawn; there is nothing to search.' };
  }
  if (!depth) return { text: 'The only legal move: played without a search.', pv: true };
  if (score?.mate !== undefined) {
    const winner = score.mate > 0 ? root.turn() : root.turn() === 'w' ? 'b' : 'w';
    return { text: `${NAMES[winner]} mates in ${Math.abs(score.mate)}: the search ends at depth ${depth}.` };
  }
  return { text: `The search ended at depth ${depth}.` };
}
