#!/usr/bin/env node
// Quiet positions of finished games with the result, for fitting evaluation
// weights: one line "FEN;R" a position, R the game's score for White (1, 0.5
// or 0). Left out: the opening (the moves up to the driver's "opening:"
// comment, or the first --skip plies of a game without one), positions
// with the side to move in check, positions whose next move captures,
// promotes or gives check, where a static score says little, and a position
// met before (same placement, side, castling and en passant square).
// usage: node tools/match/positions.mjs [--skip PLIES] GAMES.pgn ... > positions.txt

import { readFileSync } from 'node:fs';
import { Chess } from 'chess.js';

const SCORE = { '1-0': '1', '0-1': '0', '1/2-1/2': '0.5' };
const args = process.argv.slice(2);
let skip = 10;
if (args[0] === '--skip') {
  skip = Number(args[1]);
  args.splice(0, 2);
}
let games = 0;
let positions = 0;
const seen = new Set();
const out = [];
for (const file of args) {
  for (const text of readFileSync(file, 'utf8').split(/(?=^\[Event )/m)) {
    if (!text.trim()) continue;
    const chess = new Chess();
    try {
      chess.loadPgn(text);
    } catch (err) {
      process.stderr.write(`${file}: a game chess.js cannot read (${err.message}); left out\n`);
      continue;
    }
    const score = SCORE[chess.getHeaders().Result];
    if (score === undefined) continue;
    games++;
    const history = chess.history({ verbose: true });
    const opening = chess.getComments().find((c) => c.comment.startsWith('opening:'));
    const first = opening ? history.findIndex((m) => m.after === opening.fen) + 1 : skip;
    history.forEach((move, ply) => {
      if (ply < first || move.captured || move.promotion || /[+#]/.test(move.san)) return;
      const key = move.before.split(' ').slice(0, 4).join(' ');
      if (seen.has(key)) return;
      seen.add(key);
      const before = new Chess(move.before);
      if (before.inCheck()) return;
      out.push(`${move.before};${score}`);
      positions++;
      if (out.length >= 10000) process.stdout.write(out.splice(0).join('\n') + '\n');
    });
  }
}
if (out.length) process.stdout.write(out.join('\n') + '\n');
process.stderr.write(`${positions} positions from ${games} games\n`);
