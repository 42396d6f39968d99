#!/usr/bin/env node
// Quiet positions of finished games with the result, for fitting evaluation
// weights: one line "FEN;R" a position, R the game's score for White (1, 0.5
// or 0). Left out: the first plies of a game (the opening book), positions
// with the side to move in check, and positions whose next move captures,
// promotes or gives check, where a static score says little.
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
    chess.history({ verbose: true }).forEach((move, ply) => {
      if (ply < skip || move.captured || move.promotion || /[+#]/.test(move.san)) return;
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
