// The review's arithmetic on games worked out by hand, and the one protocol
// it speaks to the engine, line by line.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { GameRefused, REVIEW_HASH_MB, annotatedPgn, evalText, judge, markOf, readGame, searchGame } from '../review.js';
import { UciClient } from '../uci.js';

const { cases } = JSON.parse(readFileSync(new URL('./data/review-cases.json', import.meta.url), 'utf8'));

// A client whose engine gives the case's answers, and the lines it was sent.
function scripted(answers) {
  const sent = [];
  let next = 0;
  const client = new UciClient({
    send: (line) => {
      sent.push(line);
      if (line === 'isready') queueMicrotask(() => client.receive('readyok'));
      if (!line.startsWith('go ')) return;
      const answer = answers[next++];
      queueMicrotask(() => {
        if (answer.over) client.receive(`info string Game over (${answer.over}) !`);
        if (answer.score) {
          const [kind] = Object.keys(answer.score);
          client.receive(`info depth 4 seldepth 6 score ${kind} ${answer.score[kind]} pv ${answer.pv.join(' ')} time 1 nodes 9`);
          client.receive(`info score ${kind} ${answer.score[kind]} `);
        }
        client.receive(`bestmove ${answer.move || '0000'}`);
      });
    },
  });
  return { client, sent };
}

for (const c of cases) {
  test(c.name, async () => {
    const game = readGame(c.pgn);
    const { client, sent } = scripted(c.answers);
    const answers = await searchGame(client, game, { depth: 7 });
    const review = judge(game, answers);
    assert.deepEqual(review.scores.map(evalText), c.scores);
    assert.deepEqual(review.moves.map((m) => m.mark), c.marks);
    assert.deepEqual(review.white, c.white);
    assert.deepEqual(review.black, c.black);
    const pgn = annotatedPgn(game, review, { engine: 'Velkor', depth: 7 }).replace(/\n/g, ' ');
    for (const part of c.pgn_has) assert.ok(pgn.includes(part), `${part}\nnot in\n${pgn}`);
    assert.ok(pgn.includes('[Annotator "Velkor"] [ReviewDepth "7"] [ReviewWeights "default"]'), pgn);
    // Every position from the game's start, one search each, nothing else.
    const start = game.startFen ? `position fen ${game.startFen}` : 'position startpos';
    const searches = game.moves.map((_, i) => [`${start} moves ${game.moves.slice(0, i + 1).map((m) => m.uci).join(' ')}`, 'go depth 7']);
    assert.deepEqual(sent, [`setoption name Hash value ${REVIEW_HASH_MB}`, 'ucinewgame', 'isready', start, 'go depth 7', ...searches.flat()]);
  });
}

test('slower mates and escapes from a mate earn no mark; a mate against the mover by a losing side is milder', () => {
  const cp = (value) => ({ cp: value });
  assert.equal(markOf({ mate: 2 }, { mate: 3 }, 'w', false), null);
  assert.equal(markOf({ mate: -2 }, { mate: -1 }, 'w', false), null);
  assert.equal(markOf({ mate: -2 }, cp(100), 'w', false), null);
  assert.equal(markOf(cp(-1000), { mate: -3 }, 'w', false), 'inaccuracy');
  assert.equal(markOf(cp(-800), { mate: -3 }, 'w', false), 'mistake');
  assert.equal(markOf(cp(800), { mate: 3 }, 'b', false), 'mistake');
  assert.equal(markOf({ mate: 2 }, cp(800), 'w', false), 'mistake');
  assert.equal(markOf({ mate: 2 }, cp(2000), 'w', false), 'inaccuracy');
  assert.equal(markOf({ mate: 2 }, { mate: -4 }, 'w', false), 'blunder');
  assert.equal(markOf(cp(40), cp(0), 'w', false), null);
  assert.equal(markOf(cp(60), cp(-20), 'w', false), 'inaccuracy');
  assert.equal(markOf(cp(60), cp(-90), 'w', false), 'mistake');
  assert.equal(markOf(cp(-60), cp(150), 'b', false), 'blunder');
});

test('a game that cannot be read or played is refused with its reason', () => {
  assert.throws(() => readGame('1. e4 e5 2. Ke3 *'), (e) => e instanceof GameRefused && /illegal move: Ke3/.test(e.message));
  assert.throws(() => readGame('[FEN "8/8/8 w - - 0 1"]\n\n1. e4 *'), (e) => e instanceof GameRefused && /^bad FEN/.test(e.message));
  const read = readGame('[Event "x"]\r\n[White "A \\"B\\""]\r\n\r\n1. e4 {a} e5 $1 (1... c5 2. Nf3) 2. Nf3!? Nc6 1-0\r\n');
  assert.deepEqual(read.moves.map((m) => m.uci), ['e2e4', 'e7e5', 'g1f3', 'b8c6']);
  assert.deepEqual(read.headers, [['Event', 'x'], ['White', 'A "B"']]);
});
