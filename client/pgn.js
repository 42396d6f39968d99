// PGN's movetext as readers take it: tokens (moves, numbers, NAGs,
// comments, variations) joined by blanks in lines of at most 80 columns, a
// token longer than that on a line of its own and never cut.
export function wrapMovetext(tokens) {
  const lines = [];
  let line = '';
  for (const token of tokens) {
    if (line && line.length + 1 + token.length > 80) {
      lines.push(line);
      line = token;
    } else {
      line = line ? `${line} ${token}` : token;
    }
  }
  if (line) lines.push(line);
  return lines.join('\n');
}
