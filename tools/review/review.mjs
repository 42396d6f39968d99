#!/usr/bin/env node
// One game reviewed by a native engine (client/review.js, the page's own
// review): the game's PGN on standard input, one line of JSON out:
// { pgn, summary, scores, marks } or { error } when the game cannot be read
// or played. velkor-tune review runs it in its Dask tasks.
// Usage: node tools/review/review.mjs --engine PATH --depth N [--pbil STRING]
//        node tools/review/review.mjs --defaults   (the depth and table a review takes unless told)
import { readFileSync } from 'node:fs';
import { parseArgs } from 'node:util';
import { GameRefused, REVIEW_DEPTH, REVIEW_HASH_MB, evalText, reviewGame } from '../../client/review.js';
import { spawnEngine } from '../../client/spawn.js';

const { values } = parseArgs({
  options: { engine: { type: 'string' }, depth: { type: 'string' }, pbil: { type: 'string' }, defaults: { type: 'boolean' } },
});
if (values.defaults) {
  process.stdout.write(JSON.stringify({ depth: REVIEW_DEPTH, hash: REVIEW_HASH_MB }) + '\n');
  process.exit(0);
}
const depth = Number(values.depth);
if (!values.engine || !Number.isInteger(depth) || depth < 1) {
  console.error('usage: node tools/review/review.mjs --engine PATH --depth N [--pbil STRING] < GAME.pgn');
  process.exit(2);
}
const text = readFileSync(0, 'utf8');
// A task cancelled with its worker leaves no review behind: this one ends
// with the process that started it (the engine with it, its input closed).
const parent = process.ppid;
setInterval(() => process.ppid !== parent && process.exit(1), 500).unref();
const { client, close } = spawnEngine(values.engine, values.pbil ? [`-pbil=${values.pbil}`] : []);
let out;
try {
  const lines = await client.command(['uci'], (line) => line === 'uciok');
  const engine = (lines.find((line) => line.startsWith('id name ')) || 'id name Velkor').slice(8);
  const { pgn, summary, review } = await reviewGame(client, text, { depth, engine, weights: values.pbil });
  out = { pgn, summary, scores: review.scores.map(evalText), marks: review.moves.map((m) => m.mark) };
} catch (error) {
  out = { error: error instanceof GameRefused ? error.message : `the engine failed: ${error.message}` };
}
close();
process.stdout.write(JSON.stringify(out) + '\n');
