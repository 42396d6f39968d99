// The referee's verdicts in whole games: playGame between the fake engine of
// fixtures/fake-uci.mjs (a fault on purpose) and a well-behaved fake or Velkor.
import { before, test } from 'node:test';
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { existsSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { UciEngine } from '../lib/uci-engine.mjs';
import { playGame } from '../lib/game.mjs';
import { Chess, checkPvs } from '../lib/referee.mjs';

const path = (rel) => fileURLToPath(new URL(rel, import.meta.url));
const FAKE = path('fixtures/fake-uci.mjs');
const VELKOR = path('../../../build/release/velkor');

before(() => assert.ok(existsSync(VELKOR), `${VELKOR} is missing: make release`));

// One game: White and Black are 'velkor' or a mode of the fake engine; White
// is W, the tested side, Black is B. Returns the result and the pv batches.
async function play(white, black, job = {}) {
  const side = async (mode, name) => {
    const engine = new UciEngine(mode === 'velkor' ? { name, path: VELKOR } : { name, path: process.execPath, args: [FAKE, mode] });
    engine.start();
    await engine.handshake();
    return { engine, cfg: { name, isVelkor: name === 'W' } };
  };
  const [w, b] = await Promise.all([side(white, 'W'), side(black, 'B')]);
  const pvs = [];
  try {
    const result = await playGame({
      gameNo: 1, round: 1, opening: { name: 'start', fen: null, moves: [] }, white: w, black: b,
      tc: { baseMs: 10000, incMs: 0, moves: 0, pgn: '10' }, depth: 0, maxPlies: 100, resign: { moves: 0, cp: 0 },
      stallMarginMs: 5000, event: 'test', site: 'here', date: '2025.01.01', ...job,
    }, { onPv: (batch) => pvs.push(batch) });
    return { ...result, pvs };
  } finally {
    await Promise.all([w.engine.kill(), b.engine.kill()]);
  }
}

// The verdict of a game: [result, reason, kind, termination, plies, failures as [engine, colour, kind, ply]].
const verdict = (r) => [r.result, r.reason, r.kind, r.termination, r.plies, r.failures.map((f) => [f.engine, f.colour, f.kind, f.ply])];

test('faults lose the game with the right reason and failure', { concurrency: true }, async (t) => {
  const depth1 = { depth: 1 };
  const cases = [
    // [white, black, job, verdict, failure detail]
    ['illegal:g1f3q', 'velkor', {}, ['0-1', 'W plays illegal move g1f3q', 'illegal move', 'rules infraction', 0, [['W', 'w', 'illegal', 1]]], /^bestmove g1f3q is illegal; line "bestmove g1f3q" \(after "position startpos" \//],
    ['illegal:e1g1', 'velkor', {}, ['0-1', 'W plays illegal move e1g1', 'illegal move', 'rules infraction', 0, [['W', 'w', 'illegal', 1]]], /^bestmove e1g1 is illegal/],
    ['velkor', 'illegal:0000', depth1, ['1-0', 'B plays illegal move 0000', 'illegal move', 'rules infraction', 1, [['B', 'b', 'illegal', 2]]], /^bestmove 0000 in a position with legal moves \(after "position startpos moves \w+" \/ "go depth 1"\)$/],
    ['slow:600', 'velkor', { tc: { baseMs: 200, incMs: 0, moves: 0, pgn: '0.2' } }, ['0-1', 'W loses on time', 'time forfeit', 'time forfeit', 0, [['W', 'w', 'timeForfeit', 1]]], /^used \d+\.\d ms with 200\.0 ms left/],
    ['stall', 'velkor', { tc: { baseMs: 100, incMs: 0, moves: 0, pgn: '0.1' }, stallMarginMs: 300 }, ['0-1', 'W stalled', 'stall', 'stalled connection', 0, [['W', 'w', 'stall', 0]]], /^W: no answer within \d\.\d s \(after "position startpos" \/ "go wtime 100 btime 100 winc 0 binc 0"\)$/],
    ['crash:2', 'velkor', depth1, ['0-1', 'W crashed', 'crash', 'abandoned', 2, [['W', 'w', 'crash', 2]]], /\(after "position startpos moves g1f3 \w+" \/ "go depth 1"\)$/],
    ['crash:after', 'velkor', {}, ['0-1', 'W crashed', 'crash', 'abandoned', 1, [['W', 'w', 'crash', 1]]], /^after bestmove: W: /],
    ['velkor', 'crash:newgame', {}, ['1-0', 'B crashed at ucinewgame', 'crash', 'abandoned', 0, [['B', 'b', 'crash', 0]]], /^at ucinewgame: B: /],
  ];
  await Promise.all(cases.map(([white, black, job, want, detail]) => t.test(`${white} against ${black}`, async () => {
    const r = await play(white, black, job);
    assert.deepEqual(verdict(r), want);
    assert.match(r.failures[0].detail, detail);
    assert.equal(r.failures[0].isVelkor, want[5][0][0] === 'W');
  })));
});

test('an illegal pv is found: under a clock by the checker, at a fixed depth in the game', { concurrency: true }, async (t) => {
  const want = [['W', 0, [[1, 'g1f3']]], ['B', 1, []], ['W', 2, [[1, 'f3g1']]], ['B', 3, []]];
  const draw = ['1/2-1/2', 'move cap of 4 plies', 'move cap', 'adjudication', 4, []];
  const clock = t.test('clock', async () => {
    const r = await play('badpv', 'velkor', { maxPlies: 4 });
    assert.deepEqual(verdict(r), draw);
    assert.deepEqual(r.pvs.map((b) => [b.engine, b.ply, checkPvs(b.rootFen, b.lines).map((x) => [x.index, x.move])]), want);
    assert.deepEqual(r.pvChecked, []);
  });
  const depth = t.test('depth', async () => {
    const r = await play('badpv', 'velkor', { maxPlies: 4, depth: 1 });
    assert.deepEqual(verdict(r), draw);
    assert.deepEqual(r.pvs, []);
    assert.deepEqual(r.pvChecked.map((c) => [c.engine, c.ply, c.bad.map((x) => [x.index, x.move])]), want);
    assert.equal(r.pvChecked[0].bad[0].rootFen, 'rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1');
  });
  await Promise.all([clock, depth]);
});

test('threefold repetition, its PGN read back by chess.js and positions.mjs', async () => {
  const r = await play('legal', 'legal', { opening: { name: 'Open Game', fen: null, moves: ['e2e4', 'e7e5'] } });
  assert.deepEqual(verdict(r), ['1/2-1/2', 'threefold repetition', 'threefold repetition', 'normal', 10, []]);
  const chess = new Chess();
  chess.loadPgn(r.pgn);
  assert.deepEqual(chess.getHeaders(), {
    Event: 'test', Site: 'here', Date: '2025.01.01', Round: '1', White: 'W', Black: 'B', Result: '1/2-1/2',
    Opening: 'Open Game', TimeControl: '10', Termination: 'normal', PlyCount: '10',
  });
  assert.deepEqual(chess.history(), ['e4', 'e5', 'Nf3', 'Nf6', 'Ng1', 'Ng8', 'Nf3', 'Nf6', 'Ng1', 'Ng8']);
  const comments = chess.getComments().map((c) => c.comment.replace(/ \d+\.\d{3}s/, ' T'));
  assert.deepEqual(comments, ['opening: Open Game', '+0.01/1 T', '+0.01/1 T', '+0.02/1 T', '+0.02/1 T',
    '+0.03/1 T', '+0.03/1 T', '+0.04/1 T', '+0.04/1 T; threefold repetition']);
  assert.ok(r.pgn.split('\n').every((line) => line.length <= 80));
  // positions.mjs starts after the opening comment: four positions, the rest repeat them.
  const dir = mkdtempSync(join(tmpdir(), 'velkor-test-'));
  writeFileSync(join(dir, 'games.pgn'), `${r.pgn}\n\n${r.pgn}\n`);
  const run = spawnSync(process.execPath, [path('../positions.mjs'), join(dir, 'games.pgn')], { encoding: 'utf8' });
  rmSync(dir, { recursive: true });
  assert.equal(run.stderr, '4 positions from 2 games\n');
  assert.equal(run.stdout.split('\n')[0], 'rnbqkbnr/pppp1ppp/8/4p3/4P3/8/PPPP1PPP/RNBQKBNR w KQkq - 0 2;0.5');
});

test('Velkor: the fifty-move rule and bare kings, from a FEN', { concurrency: true }, async (t) => {
  const fifty = t.test('fifty-move rule', async () => {
    const fen = '8/8/8/3k4/8/8/8/K6R w - - 99 100';
    const r = await play('velkor', 'velkor', { opening: { name: 'KR-K', fen, moves: [] }, depth: 2 });
    assert.deepEqual(verdict(r), ['1/2-1/2', 'fifty-move rule', 'fifty-move rule', 'normal', 1, []]);
    assert.match(r.pgn, /^\[SetUp "1"\]\n\[FEN "8\/8\/8\/3k4\/8\/8\/8\/K6R w - - 99 100"\]\n\[Termination "normal"\]$/m);
    assert.match(r.pgn, /\n\n\{opening: KR-K; go depth 2\} 100\. R\S+ \{[+-]\d+\.\d\d\/2 \d+\.\d{3}s; fifty-move rule\} 1\/2-1\/2$/);
  });
  const bare = t.test('insufficient material', async () => {
    const r = await play('velkor', 'velkor', { opening: { name: 'forced Kxg2', fen: '8/8/8/8/8/4k3/6r1/7K w - - 0 1', moves: [] } });
    assert.deepEqual(verdict(r), ['1/2-1/2', 'insufficient material', 'insufficient material', 'normal', 1, []]);
    assert.match(r.pgn, /\{opening: forced Kxg2\} 1\. Kxg2 \{.*; insufficient material\} 1\/2-1\/2$/);
  });
  await Promise.all([fifty, bare]);
});
