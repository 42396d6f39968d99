// The WebAssembly engine's Node entry as a match runner drives it: input
// that stays open, a stop timed from the outside (in both builds: without
// turns, the entry's own choice, and with them), quit, and what it leaves
// behind. (The transcripts, the battery and the bench count run against it
// from the engine's own tests: make test-web.)
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { dirname, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { GENES, GENE_CHARS } from '../../tools/match/lib/genes.mjs';

const root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const entry = resolve(process.env.VELKOR_WEB || resolve(root, 'build/web'), 'engine/velkor.mjs');

// The engine started directly (the entry is executable), with its input
// kept open; lines() resolves once a line matches.
function start(args = [], build = 'shared') {
  const child = spawn(entry, args, { stdio: ['pipe', 'pipe', 'pipe'], env: { ...process.env, VELKOR_WEB_BUILD: build } });
  let out = '';
  const waiters = [];
  child.stdout.on('data', (chunk) => {
    out += chunk;
    for (const w of [...waiters]) if (w.pattern.test(out.slice(w.from))) waiters.splice(waiters.indexOf(w), 1) && w.resolve(performance.now());
  });
  const ended = new Promise((done) => child.on('exit', (status) => done(status)));
  return {
    send: (line) => child.stdin.write(line + '\n'),
    seen: (pattern) => new Promise((resolve) => waiters.push({ pattern, from: out.length, resolve })),
    output: () => out,
    ended,
    child,
  };
}

for (const build of ['shared', 'turns']) {
  test(`stop ends go infinite within 100 ms under Node (${build})`, { timeout: 20000 }, async () => {
    const engine = start([], build);
    engine.send('go infinite');
    await engine.seen(/info depth 9 /);
    const sent = performance.now();
    const bestmove = engine.seen(/bestmove \S+\n/);
    engine.send('stop');
    assert.ok((await bestmove) - sent < 100, `${(await bestmove) - sent} ms`);
    engine.send('quit');
    assert.equal(await engine.ended, 0);
  });
}

test('quit ends the engine while its input stays open', { timeout: 20000 }, async () => {
  const engine = start(['-pbil=' + '0'.repeat(GENE_CHARS)]);
  engine.send('uci');
  await engine.seen(/uciok/);
  engine.send('quit');
  const status = await Promise.race([engine.ended, new Promise((r) => setTimeout(() => r('still running'), 2000))]);
  assert.equal(status, 0);
  const last = String(GENES.length - 1).padStart(2, '0');
  assert.match(engine.output(), new RegExp(`^info debug pbil\\[${last}\\] = 0$`, 'm'));
});

test('the end of input during go infinite ends the search and the engine', { timeout: 20000 }, async () => {
  const engine = start();
  engine.send('go infinite');
  await engine.seen(/info depth 6 /);
  engine.child.stdin.end();
  assert.equal(await engine.ended, 0);
  assert.match(engine.output(), /\nbestmove \S+\n$/);
});

// 32-bit WebAssembly addresses 2 GB at most: a larger table is refused and
// halved until one fits, and the engine searches with it.
test('a table larger than the address space is halved until it fits', { timeout: 60000 }, async () => {
  const engine = start();
  engine.send('setoption name Hash value 4096');
  engine.send('isready');
  await engine.seen(/readyok/);
  engine.send('go depth 6');
  await engine.seen(/bestmove/);
  engine.send('quit');
  assert.equal(await engine.ended, 0);
  const sizes = [...engine.output().matchAll(/Transposition Table \((\d+) MB\) : (\w+)/g)].slice(1).map((m) => `${m[1]} ${m[2]}`);
  assert.equal(sizes[0], '4096 failure');
  assert.match(sizes.at(-1), /^(1024|512) success$/);
});
