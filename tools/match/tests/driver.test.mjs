// The driver as a whole (match.mjs, its worker, the pv checker) with the
// fake engine as the tested side against Velkor; its options and openings.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { existsSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { parseOptions, pairOpening, UsageError, checkEngines, loadOpponents, EngineUnavailable } from '../match.mjs';
import { GENE_CHARS } from '../lib/genes.mjs';
import { Chess, playUci, playPvMove, gameOverByRules, loadOpenings } from '../lib/referee.mjs';

const path = (rel) => fileURLToPath(new URL(rel, import.meta.url));
const GENES = 'a'.repeat(GENE_CHARS);
const VELKOR = path('../../../build/release/velkor');
const fixture = (name) => path(`fixtures/${name}`);

test('the driver counts the illegal pvs of the tested side, both games of a pair on one opening', (t) => {
  const dir = mkdtempSync(join(tmpdir(), 'velkor-test-'));
  t.after(() => rmSync(dir, { recursive: true }));
  const run = spawnSync(process.execPath, [path('../match.mjs'), '--engine', path('fixtures/fake-uci.mjs'),
    '--opponents', `base=${VELKOR}`, '--games', '2', '--depth', '1', '--max-plies', '5',
    '--openings', path('fixtures/openings.txt'), '--seed', '7', '--random-plies', '2', '--no-compliance',
    '--pgn', join(dir, 'games.pgn'), '--json', join(dir, 'result.json')],
  { encoding: 'utf8', env: { ...process.env, FAKE_UCI: 'badpv' } });
  assert.equal(run.status, 1, run.stderr);
  assert.match(run.stdout, /\n0 passed, 2 failed\n$/);
  const json = JSON.parse(readFileSync(join(dir, 'result.json'), 'utf8'));
  const none = { crash: 0, stall: 0, illegal: 0, illegalPv: 0, timeForfeit: 0 };
  assert.deepEqual(json.failures, { velkor: { ...none, illegalPv: 2 }, opponents: none, driver: 0 });
  assert.deepEqual(json.results.map((g) => [g.game, g.pair, g.opening, g.white, g.result, g.ending, g.plies]),
    [[1, 0, 'e4 +2', 'Velkor', '1/2-1/2', 'move cap', 5], [2, 0, 'e4 +2', 'base', '1/2-1/2', 'move cap', 5]]);
  // The fake searches at ply 4 as White, at ply 3 as Black; its pv plays its move twice.
  const details = json.results.map((g) => g.failures.map((f) => `${f.kind} ${f.detail}`));
  assert.match(details[0].join('|'), /^illegalPv ply 4: move 2 "(\w{4})" in "info depth 1 score cp \d+ pv \1 \1"$/);
  assert.match(details[1].join('|'), /^illegalPv ply 3: move 2 "(\w{4})" in "info depth 1 score cp \d+ pv \1 \1"$/);
  for (const text of readFileSync(join(dir, 'games.pgn'), 'utf8').split(/\n\n(?=\[Event )/)) {
    const chess = new Chess();
    chess.loadPgn(text);
    const history = chess.history({ verbose: true });
    assert.deepEqual(history.slice(0, 3).map((m) => m.lan), ['e2e4', 'h7h5', 'a2a4']);
    assert.deepEqual(chess.getComments()[0], { fen: history[2].after, comment: 'opening: e4 +2; go depth 1' });
  }
});

test('an engine that cannot play stops the match in one line before any game', async () => {
  const dir = mkdtempSync(join(tmpdir(), 'velkor-test-'));
  const pgn = join(dir, 'games.pgn');
  for (const [args, line] of [
    [['--opponents', 'ghost=/nonexistent/engine'], 'ghost (/nonexistent/engine) is not there or not executable'],
    [['--opponents', `stockfish,mute=/bin/true`], 'mute (/bin/true) does not answer uci with uciok (stdout closed)'],
    [['--engine', '/nonexistent/velkor', '--opponents', 'stockfish'], 'Velkor (/nonexistent/velkor) is not there or not executable'],
  ]) {
    const run = spawnSync(process.execPath, [path('../match.mjs'), '--engine', VELKOR, '--games', '2', '--depth', '2',
      '--pgn', pgn, ...args], { encoding: 'utf8' });
    assert.deepEqual([run.status, run.stdout, run.stderr], [2, '', `match: cannot play: ${line}\n`], args.join(' '));
    assert.ok(!existsSync(pgn));
  }
  // A table engine that is not installed names its package; a serving driver answers the line and goes on.
  const ethereal = { ...loadOpponents().ethereal, path: '/nonexistent/ethereal-chess', key: 'e' };
  await assert.rejects(checkEngines([ethereal]), new EngineUnavailable('cannot play: Ethereal (/nonexistent/ethereal-chess)'
    + ' is not installed (Debian package ethereal-chess; bash tools/match/setup.sh installs it)'));
  const line = JSON.stringify(['--engine', VELKOR, '--opponents', 'ghost=/nonexistent/engine', '--games', '2', '--pgn', pgn]);
  const served = spawnSync(process.execPath, [path('../match.mjs'), '--serve'], { input: `${line}\n${line}\n`, encoding: 'utf8' });
  const answer = JSON.stringify({ error: 'cannot play: ghost (/nonexistent/engine) is not there or not executable' });
  assert.deepEqual([served.status, served.stdout], [0, `${answer}\n${answer}\n`]);
  rmSync(dir, { recursive: true });
});

test('parseOptions refuses bad input with a UsageError', () => {
  for (const [argv, message] of [
    [['--bogus'], /^Unknown option '--bogus'/],
    [['stray'], /^Unexpected argument 'stray'/],
    [['--tc'], /^Option '--tc <value>' argument missing/],
    [['--tc', '2+'], /^bad --tc "2\+"$/],
    [['--tc', '40/1:30'], /^bad --tc "40\/1:30"$/],
    [['--pbil', GENES.slice(1)], new RegExp(`^a gene string has ${GENE_CHARS} characters, got ${GENE_CHARS - 1}$`)],
    [['--games', 'ten'], /^--games needs a number$/],
    [['--option', 'Hash'], /^--option needs NAME=VALUE$/],
  ]) {
    assert.throws(() => parseOptions(argv), (e) => e instanceof UsageError && message.test(e.message), argv.join(' '));
  }
});

test('parseOptions reads time controls, genes, options and defaults', () => {
  const o = parseOptions(['--tc', '40/10+0.1', '--pbil', GENES, '--games', '4', '--option', 'Hash=16', '--option', 'A=b=c', '--pv-sample', '0', '--serve']);
  assert.deepEqual(o.tcParsed, { moves: 40, baseMs: 10000, incMs: 100, pgn: '40/10+0.1' });
  assert.deepEqual([o.pbil, o.games, o.options, o.pvSample, o.serve, o.randomPlies, o.maxPlies, o.stallMargin],
    [GENES, 4, [['Hash', '16'], ['A', 'b=c']], 0, true, 0, 300, 10]);
  assert.deepEqual(parseOptions(['--tc', '2']).tcParsed, { moves: 0, baseMs: 2000, incMs: 0, pgn: '2' });
});

test('pairOpening: seeded legal plies after the line, none that would end the game', () => {
  const ruy = { name: 'Ruy Lopez', fen: null, moves: ['e2e4', 'e7e5', 'g1f3', 'b8c6', 'f1b5'] };
  assert.equal(pairOpening(ruy, 0, 1, 3), ruy);
  const a = pairOpening(ruy, 6, 1, 3);
  // Pinned: a tuning run that is resumed plays its pairs on the same openings again.
  assert.deepEqual(a, { ...ruy, name: 'Ruy Lopez +6', moves: [...ruy.moves, 'a7a6', 'h1g1', 'f7f5', 'a2a3', 'g8e7', 'b5a6'] });
  assert.deepEqual(pairOpening(ruy, 6, 1, 3), a);
  assert.notDeepEqual(pairOpening(ruy, 6, 1, 4).moves, a.moves);
  assert.notDeepEqual(pairOpening(ruy, 6, 2, 3).moves, a.moves);
  const chess = new Chess();
  assert.ok(a.moves.every((mv) => playUci(chess, mv)));
  assert.equal(gameOverByRules(chess), null);
  // White's only move takes the last black piece: no random ply at all.
  const bare = { name: 'bare', fen: '8/8/8/8/8/4k3/6r1/7K w - - 0 1', moves: [] };
  assert.deepEqual(pairOpening(bare, 4, 1, 0), { ...bare, name: 'bare +0' });
});

test('playUci and playPvMove take exactly the moves chess.js lists, in every form a token can have', () => {
  const fens = [
    null,
    'r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1', // castling both ways, pins
    'r3k2r/8/8/8/8/8/8/R3K1r1 w Qkq - 0 1', // in check: no castling
    'n1n5/PPPk4/8/8/8/8/4Kppp/5N1N b - - 0 1', // promotions, by capture too
    'rnbqkbnr/ppp1p1pp/8/3pPp2/8/8/PPPP1PPP/RNBQKBNR w KQkq f6 0 3', // en passant
  ];
  const squares = [...'abcdefgh'].flatMap((f) => [...'12345678'].map((r) => f + r));
  for (const fen of fens) {
    const chess = fen ? new Chess(fen) : new Chess();
    const listed = new Set(chess.moves({ verbose: true }).map((m) => m.lan));
    const taken = new Set();
    for (const from of squares) {
      if (chess.get(from)?.color !== chess.turn()) continue;
      for (const to of squares) {
        for (const promotion of ['', 'q', 'r', 'b', 'n']) {
          const token = from + to + promotion;
          const before = chess.fen();
          if (playPvMove(chess, token)) {
            chess._undoMove();
            assert.ok(playUci(chess, token), token);
            assert.equal(chess.undo().lan, token);
            taken.add(token);
          } else {
            assert.equal(playUci(chess, token), null, token);
          }
          assert.equal(chess.fen(), before, token);
        }
      }
    }
    assert.deepEqual([...taken].sort(), [...listed].sort(), fen ?? 'start');
  }
  assert.equal(playUci(new Chess(), 'e2e4 '), null);
});

test('books: EPD and PGN read as other runners write them, each position checked', () => {
  const epd = fixture('book.epd');
  const knights = 'r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 2 3';
  assert.deepEqual(loadOpenings(epd), [
    { name: 'book.epd:3', fen: 'rnbqkbnr/pppppppp/8/8/4P3/8/PPPP1PPP/RNBQKBNR b KQkq e3 0 1', moves: [] },
    { name: 'book.epd:5', fen: knights, moves: [] },
    { name: 'Petrov; or not', fen: knights, moves: [] },
  ]);
  assert.deepEqual(loadOpenings(fixture('book.pgn')), [
    { name: 'book.pgn game 1', fen: knights, moves: [] },
    { name: 'book.pgn game 2', fen: 'r1bqkbnr/1ppp1ppp/p1n5/1B2p3/4P3/5N2/PPPP1PPP/RNBQK2R w KQkq - 0 4', moves: [] },
  ]);
  const dir = mkdtempSync(join(tmpdir(), 'velkor-test-'));
  const bad = (name, text) => {
    writeFileSync(join(dir, name), text);
    return join(dir, name);
  };
  for (const [file, message] of [
    [bad('side.epd', '8/8/8/8/8/8/8/K6k x - - ce 1;\n'), 'side.epd:1: bad FEN: Invalid FEN: side-to-move is invalid'],
    [bad('short.epd', '\n8/8/8/8/8/8/8/K6k w -\n'), 'short.epd:2: an EPD line starts with placement, side, castling and en passant'],
    [bad('check.epd', '4k3/8/8/8/8/8/8/K3R3 w - - ce 0;\n'), 'check.epd:1: bad FEN: the side not to move is in check'],
    [bad('open.epd', '4k3/8/8/8/8/8/8/4K2R w - - ce 0\n'), 'open.epd:1: EPD operation "ce" is not ended by ";"'],
    [bad('op.epd', '4k3/8/8/8/8/8/8/4K2R w - - 12;\n'), 'op.epd:1: bad EPD operation at "12;"'],
    [bad('over.epd', '4k3/8/8/8/8/8/8/4K3 w - -\n'), 'over.epd:1: the position ends the game'],
    [bad('empty.epd', '# nothing\n'), 'empty.epd: no openings'],
    [bad('illegal.pgn', '[Event "x"]\n\n1. e4 e5 2. Ke3 *\n'), 'illegal.pgn: game 1: Invalid move in PGN: Ke3'],
    [bad('mate.pgn', '1. f3 e5 2. g4 Qh4# 0-1\n'), 'mate.pgn: game 1: the final position ends the game'],
  ]) {
    assert.throws(() => loadOpenings(file), (e) => e.message === `${dir}/${message}`, message);
  }
  // The driver checks a book on its own, as the tuner does before a match, and refuses a bad one in one line.
  const ok = spawnSync(process.execPath, [path('../match.mjs'), '--openings', epd, '--check-openings'], { encoding: 'utf8' });
  assert.deepEqual([ok.status, ok.stdout], [0, `3 positions in ${epd}\n`]);
  const no = spawnSync(process.execPath, [path('../match.mjs'), '--openings', join(dir, 'check.epd'), '--check-openings'], { encoding: 'utf8' });
  assert.deepEqual([no.status, no.stderr], [2, `match: ${dir}/check.epd:1: bad FEN: the side not to move is in check\n`]);
  rmSync(dir, { recursive: true });
});

test('a match from a book plays both games of a pair from its position', (t) => {
  const dir = mkdtempSync(join(tmpdir(), 'velkor-test-'));
  t.after(() => rmSync(dir, { recursive: true }));
  const run = spawnSync(process.execPath, [path('../match.mjs'), '--engine', VELKOR, '--opponents', 'velkor',
    '--games', '6', '--depth', '1', '--max-plies', '12', '--concurrency', '1', '--openings', fixture('book.pgn'), '--seed', '3', '--no-compliance',
    '--pgn', join(dir, 'games.pgn'), '--json', join(dir, 'result.json')], { encoding: 'utf8' });
  assert.equal(run.status, 0, run.stderr);
  const json = JSON.parse(readFileSync(join(dir, 'result.json'), 'utf8'));
  const openings = json.results.map((g) => g.opening);
  assert.deepEqual([openings[0], openings[2], openings[4]].sort(), ['book.pgn game 1', 'book.pgn game 1', 'book.pgn game 2']);
  assert.deepEqual([openings[1], openings[3], openings[5]], [openings[0], openings[2], openings[4]]);
  const starts = readFileSync(join(dir, 'games.pgn'), 'utf8').match(/\[FEN "[^"]*"\]/g);
  const fens = Object.fromEntries(loadOpenings(fixture('book.pgn')).map((o) => [o.name, `[FEN "${o.fen}"]`]));
  assert.deepEqual(starts, openings.map((name) => fens[name]));
});
