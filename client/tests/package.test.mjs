// The npm package as a web developer gets it: the tarball of make npm
// installed offline into a scratch project, then used by its name under
// Node and from a page in headless chromium. Its answers are the native
// engine's to the same lines, node for node.
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import { mkdirSync, readdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { parseBestmove, parseInfo } from '../uci.js';
import { browser, serve } from '../../web/tests/site.mjs';

const root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const dist = resolve(root, 'build/dist');
const tarball = process.env.VELKOR_NPM || join(dist, readdirSync(dist).find((f) => /^velkor-[\d.]+\.tgz$/.test(f)));
const native = process.env.VELKOR_ENGINE || resolve(root, 'build/release/velkor');
const scratch = resolve(root, 'build/npm-test');

const ITALIAN = 'r1bqkbnr/pppp1ppp/2n5/4p3/2B1P3/5N2/PPPP1PPP/RNBQK2R b KQkq - 3 3';
const MATE_IN_ONE = { moves: ['e2e4', 'e7e5', 'f1c4', 'b8c6', 'd1h5', 'g8f6'] };
const CASES = [
  { position: {}, limits: { depth: 8 } },
  { position: { fen: ITALIAN, moves: ['g8f6', 'f3g5'] }, limits: { depth: 9 } },
  { position: MATE_IN_ONE, limits: { depth: 6 } },
];

// What the native engine answers to hash, position and go: its last report
// with a depth, and its bestmove.
function nativeAnswer({ position, limits }) {
  const lines = [
    'setoption name Hash value 16',
    `position ${position.fen ? `fen ${position.fen}` : 'startpos'}${position.moves?.length ? ` moves ${position.moves.join(' ')}` : ''}`,
    `go depth ${limits.depth}`,
  ];
  return new Promise((done, fail) => {
    const engine = spawn(native, [], { stdio: ['pipe', 'pipe', 'inherit'] });
    let out = '';
    engine.stdout.on('data', (chunk) => {
      out += chunk;
      if (/^bestmove .*$/m.test(out)) engine.stdin.end('quit\n');
    });
    engine.on('error', fail);
    engine.on('close', () => {
      const all = out.split('\n');
      const reports = all.filter((l) => l.startsWith('info depth')).map(parseInfo);
      done({ info: reports.at(-1), move: parseBestmove(all.find((l) => l.startsWith('bestmove'))).move });
    });
    engine.stdin.write(lines.join('\n') + '\n');
  });
}

// The fields that do not depend on the machine's speed.
const exact = ({ depth, seldepth, score, nodes, pv }) => ({ depth, seldepth, score, nodes, pv });

before(() => {
  rmSync(scratch, { recursive: true, force: true });
  mkdirSync(scratch, { recursive: true });
  writeFileSync(join(scratch, 'package.json'), JSON.stringify({ name: 'scratch', private: true, type: 'module' }));
  execFileSync('npm', ['install', '--offline', '--no-audit', '--no-fund', '--loglevel=error', tarball], { cwd: scratch });
});

test('the package holds its types, its engine and no runtime dependency', () => {
  const installed = join(scratch, 'node_modules/velkor');
  const manifest = JSON.parse(readFileSync(join(installed, 'package.json'), 'utf8'));
  assert.equal(manifest.type, 'module');
  assert.equal(manifest.dependencies, undefined);
  for (const file of ['index.d.ts', 'engine/velkor.wasm', 'engine/worker.js', 'engine/node-worker.cjs', 'README.md']) {
    readFileSync(join(installed, file));
  }
  assert.match(readFileSync(join(installed, 'index.d.ts'), 'utf8'), /export function loadEngine\(options\?: LoadOptions\): Promise<Engine>/);
});

test('under Node: analyse and play answer as the native engine, and bad input is refused', async () => {
  writeFileSync(join(scratch, 'check.mjs'), `
import { loadEngine, PositionRefused } from 'velkor';
const cases = JSON.parse(process.argv[2]);
const engine = await loadEngine({ hash: 16 });
const out = { name: engine.name, analysed: [], played: [] };
for (const c of cases) {
  out.analysed.push(await engine.analyse(c.position, c.limits));
  await engine.newGame();
  out.played.push((await engine.play(c.position, c.limits)).move);
  await engine.newGame();
}
out.forced = await engine.play({ fen: '7k/8/8/8/8/8/6q1/7K w - - 0 1' }, { depth: 5 });
out.over = await engine.play({ moves: ${JSON.stringify(MATE_IN_ONE.moves)}.concat('h5f7') }, { depth: 5 });
out.badFen = await engine.analyse({ fen: '8/8/8 w - - 0 1' }, { depth: 3 }).catch((e) => e instanceof PositionRefused && e.message);
out.badMove = await engine.analyse({ moves: ['e2e5'] }, { depth: 3 }).catch((e) => e instanceof PositionRefused && e.message);
out.badLimit = await engine.analyse({}, { depth: -1 }).catch((e) => e instanceof TypeError);
const run = engine.analysis({});
const depths = [];
for await (const info of run) { depths.push(info.depth); if (info.depth >= 6) run.stop(); }
out.depths = depths;
out.stopped = (await run.result).move;
out.after = (await engine.analyse({}, { depth: 2 })).depth;
await engine.quit();
console.log(JSON.stringify(out));
`);
  const out = JSON.parse(execFileSync('node', ['check.mjs', JSON.stringify(CASES)], { cwd: scratch, encoding: 'utf8', timeout: 120000 }));
  assert.match(out.name, /^Velkor /);
  for (const [i, c] of CASES.entries()) {
    const expected = await nativeAnswer(c);
    assert.deepEqual(exact(out.analysed[i]), exact(expected.info), `analyse ${JSON.stringify(c)}`);
    assert.equal(out.played[i], expected.move);
  }
  assert.deepEqual(out.analysed[2].score, { mate: 1 });
  assert.deepEqual(out.forced, { move: 'h1g2', info: { pv: ['h1g2'] } });
  assert.deepEqual(out.over, { move: null, info: { pv: [] } });
  assert.match(out.badFen, /^Invalid FEN/);
  assert.equal(out.badMove, 'Illegal move: e2e5');
  assert.equal(out.badLimit, true);
  assert.ok(out.depths.every((d, i) => i === 0 || d >= out.depths[i - 1]) && out.depths.at(-1) >= 6, `${out.depths}`);
  assert.match(out.stopped, /^[a-h][1-8][a-h][1-8]$/);
  assert.equal(out.after, 2);
});

let site, chromium;
before(async () => {
  site = await serve(scratch);
  chromium = await browser();
});
after(async () => {
  await chromium?.close();
  site?.close();
});

test('in a browser: the package from a page answers as the native engine', async () => {
  writeFileSync(join(scratch, 'index.html'), `<!doctype html><meta charset="utf-8"><title>scratch</title>
<script type="module">
import { loadEngine } from './node_modules/velkor/index.js';
const engine = await loadEngine({ hash: 16 });
window.answer = await engine.analyse(${JSON.stringify(CASES[1].position)}, ${JSON.stringify(CASES[1].limits)});
</script>`);
  const page = await chromium.newPage();
  const problems = [];
  page.on('pageerror', (e) => problems.push(e.message));
  await page.goto(site.url);
  await page.waitForFunction(() => window.answer, null, { timeout: 60000 });
  const answer = await page.evaluate(() => window.answer);
  assert.deepEqual(exact(answer), exact((await nativeAnswer(CASES[1])).info));
  await page.goto(`${site.url}node_modules/velkor/example/index.html`);
  await page.waitForFunction(() => document.getElementById('out').textContent.includes('is ready'), null, { timeout: 30000 });
  await page.click('#analyse');
  await page.waitForFunction(() => document.getElementById('out').textContent.startsWith('depth 10'), null, { timeout: 60000 });
  assert.deepEqual(problems, []);
});
