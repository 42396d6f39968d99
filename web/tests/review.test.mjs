// A game's review through the page's own controls in headless chromium, and
// the same games reviewed by velkor-tune review on a local Dask cluster with
// the native engine: the two annotated games are the same text. Then the
// review as a player uses it: the graph, the marks, the next mistake, cancel,
// a phone's screen (screenshots beside the site, in build/web-shots).
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { browser, serve } from './site.mjs';

const root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const siteDir = process.env.VELKOR_WEB || resolve(root, 'build/web');
const engine = process.env.VELKOR_ENGINE || resolve(root, 'build/release/velkor');
const shots = resolve(siteDir, '../web-shots');
const gamesFile = resolve(root, 'client/tests/data/games.pgn');
const games = readFileSync(gamesFile, 'utf8').replace(/\r\n/g, '\n').split(/\n(?=\[Event )/);
const DEPTH = 5;
mkdirSync(shots, { recursive: true });

let site, chromium, page;
const problems = [];

before(async () => {
  site = await serve(siteDir);
  chromium = await browser();
  page = await chromium.newPage({ viewport: { width: 1280, height: 900 } });
  page.on('console', (m) => m.type() === 'error' && problems.push(m.text()));
  page.on('pageerror', (e) => problems.push(e.message));
  await page.goto(site.url);
  await page.waitForFunction(() => document.getElementById('engine-status').textContent.startsWith('Velkor is ready'), null, { timeout: 30000 });
});

after(async () => {
  await chromium?.close();
  site?.close();
});

async function reviewInPage(pgn, depth) {
  await page.fill('#pgn', pgn);
  await page.click('#load-pgn');
  await page.fill('#review-depth', String(depth));
  await page.click('#review-game');
  await page.waitForFunction(() => !document.getElementById('review-result').hidden, null, { timeout: 120000 });
  return page.inputValue('#pgn');
}

test('the page reviews a game as velkor-tune review does on a Dask cluster, to the character', async () => {
  const out = mkdtempSync(join(tmpdir(), 'velkor-review-'));
  execFileSync('/usr/bin/python3', [resolve(root, 'tools/tune/velkor-tune'), 'review', gamesFile, '--out', out, '--depth', String(DEPTH),
    '--workers', '2', '--engine', engine], { env: { ...process.env, VELKOR_TUNE_CACHE: join(out, 'cache') }, stdio: 'pipe', timeout: 300000 });
  for (const [i, game] of games.entries()) {
    const command = JSON.parse(readFileSync(join(out, 'games', `${String(i + 1).padStart(6, '0')}.json`), 'utf8'));
    assert.equal(await reviewInPage(game, DEPTH), command.pgn, `game ${i + 1}`);
  }
});

test('the graph, the marks and the next mistake lead through the reviewed game', async () => {
  await reviewInPage(games[0], DEPTH);
  assert.ok(await page.isVisible('#review-graph'));
  const marked = await page.locator('#moves button.move.blunder').allTextContents();
  assert.deepEqual(marked, ['Nf6??']);
  await page.keyboard.press('Home');
  await page.keyboard.press('n');
  assert.match(await page.textContent('#review-move'), /^e4\?!: -0\.19\. Inaccuracy\. Better was 1\. d4 /);
  await page.keyboard.press('n');
  assert.match(await page.textContent('#review-move'), /^Nf6\?\?: #1\. Blunder\. Better was 3… /);
  assert.equal(await page.locator('#moves button.current').textContent(), 'Nf6??');
  // A click on the graph's far left is the start, its far right the end.
  const box = await page.locator('#review-graph').boundingBox();
  await page.mouse.click(box.x + 2, box.y + box.height / 2);
  assert.equal(await page.inputValue('#fen'), 'rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1');
  await page.mouse.click(box.x + box.width - 2, box.y + box.height / 2);
  assert.match(await page.textContent('#result'), /Checkmate/);
  assert.match(await page.textContent('#review-white'), /^\d+(\.\d)? %$/);
  await page.screenshot({ path: `${shots}/review.png`, fullPage: true });
});

test('a review shows its progress and can be cancelled; the engine then analyses as before', async () => {
  await page.fill('#pgn', games[2]);
  await page.click('#load-pgn');
  await page.fill('#review-depth', '14');
  await page.click('#review-game');
  await page.waitForFunction(() => /Reviewing: [1-9]\d* of 62 positions, about \d+ s left/.test(document.getElementById('review-progress-text').textContent), null, { timeout: 30000 });
  assert.ok(await page.isDisabled('#analyse'));
  await page.click('#review-cancel');
  await page.waitForFunction(() => document.getElementById('message').textContent === 'The review was cancelled.', null, { timeout: 5000 });
  assert.ok(await page.isHidden('#review-progress'));
  assert.equal(await page.inputValue('#hash'), '128');
  await page.keyboard.press('Home'); // the game ends in a mate: its start has something to analyse
  await page.check('input[name="mode"][value="analyse"]');
  await page.click('#analyse');
  await page.waitForFunction(() => Number(document.getElementById('info-depth').textContent.split('/')[0]) >= 5, null, { timeout: 30000 });
  await page.click('#stop');
  await page.fill('#review-depth', '0');
  await page.click('#review-game');
  assert.equal(await page.textContent('#message'), 'The review depth is a whole number of plies from 1 to 30.');
});

test('on a phone the reviewed game fits the screen', async () => {
  const phone = await chromium.newPage({ viewport: { width: 390, height: 844 }, isMobile: true, hasTouch: true });
  await phone.goto(site.url);
  await phone.waitForFunction(() => document.getElementById('engine-status').textContent.startsWith('Velkor is ready'), null, { timeout: 30000 });
  await phone.fill('#pgn', games[0]);
  await phone.click('#load-pgn');
  await phone.fill('#review-depth', String(DEPTH));
  await phone.click('#review-game');
  await phone.waitForFunction(() => !document.getElementById('review-result').hidden, null, { timeout: 60000 });
  const width = await phone.evaluate(() => document.documentElement.scrollWidth);
  assert.ok(width <= 390, `the page is ${width} px wide`);
  await phone.screenshot({ path: `${shots}/review-phone.png`, fullPage: true });
  await phone.close();
  assert.deepEqual(problems, []);
});
