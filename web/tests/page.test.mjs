// The page in a real browser: Debian's chromium, headless, on the site that
// make web builds (build/web, or VELKOR_WEB), served as a plain static host
// serves it. A game against the engine played through the page's own
// controls, analysis, stop, the promotion picker, bad FEN and PGN, a dead
// worker brought back, and a phone's screen; screenshots are kept beside
// the site (build/web-shots).
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import { mkdirSync } from 'node:fs';
import { dirname, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Chess } from 'chess.js';
import { browser, serve } from './site.mjs';

const root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const siteDir = process.env.VELKOR_WEB || resolve(root, 'build/web');
const shots = resolve(siteDir, '../web-shots');
mkdirSync(shots, { recursive: true });

let site, chromium, page;
const problems = []; // console errors and uncaught exceptions of the page

async function open(options = {}) {
  const p = await chromium.newPage({ viewport: { width: 1280, height: 900 }, ...options });
  p.on('console', (m) => m.type() === 'error' && problems.push(`${m.type()}: ${m.text()}`));
  p.on('pageerror', (e) => problems.push(`exception: ${e.message}`));
  await p.goto(site.url);
  await ready(p);
  return p;
}

const ready = (p) => p.waitForFunction(() => document.getElementById('engine-status').textContent.startsWith('Velkor is ready'), null, { timeout: 30000 });
const text = (selector) => page.textContent(selector);
const fen = () => page.inputValue('#fen');
const moveCount = () => page.locator('#moves button.move').count();

// A move by two clicks, once the board shows the piece and has settled.
async function clickMove(from, to) {
  await page.waitForSelector(`#board g[data-square="${from}"]`);
  await page.waitForTimeout(250);
  await clickSquare(from);
  await clickSquare(to);
}

async function clickSquare(square) {
  const rect = page.locator(`#board rect[data-square="${square}"]`);
  await rect.scrollIntoViewIfNeeded();
  const box = await rect.boundingBox();
  await page.mouse.click(box.x + box.width / 2, box.y + box.height / 2);
}

// The moves of the page's game, read back through its own PGN export.
async function pageGame() {
  await page.click('#copy-pgn');
  const game = new Chess();
  game.loadPgn(await page.inputValue('#pgn')); // throws on any illegal move
  return game;
}

before(async () => {
  site = await serve(siteDir);
  chromium = await browser();
  page = await open();
});

after(async () => {
  await chromium?.close();
  site?.close();
});

test('the engine answers uciok soon after the page opens', async () => {
  const status = await text('#engine-status');
  const [, uciok, opened] = /uciok (\d+) ms after start, (\d+) ms after the page opened/.exec(status).map(Number);
  assert.ok(uciok < 5000 && opened < 10000, status);
});

test('a short game against the engine, every move legal', async () => {
  await page.selectOption('#limit-kind', 'depth');
  await page.fill('#limit-value', '3');
  await page.click('#new-game');
  for (let move = 0; move < 4; move++) {
    // Our move: the first legal one of the position the page shows, clicked
    // on the board; the last one typed, as a keyboard user would.
    const before = await moveCount();
    const position = new Chess(await fen());
    const choice = position.moves({ verbose: true }).find((m) => !m.promotion);
    if (move < 3) {
      await clickMove(choice.from, choice.to);
    } else {
      await page.fill('#move-input', choice.san);
      await page.press('#move-input', 'Enter');
    }
    await page
      .waitForFunction((n) => document.querySelectorAll('#moves button.move').length >= n + 2, before, { timeout: 20000 })
      .catch(async () => assert.fail(`no reply to ${choice.san}: ${await text('#moves')} ${await text('#message')}`));
  }
  const game = await pageGame();
  assert.equal(game.history().length, 8);
  assert.equal(game.fen(), await fen());
  await page.screenshot({ path: `${shots}/game.png` });
});

test('the move list navigates, by buttons and by keys', async () => {
  const last = await fen();
  await page.click('#nav-first');
  assert.equal(await fen(), new Chess().fen());
  await page.click('#nav-forward');
  await page.focus('#board');
  await page.keyboard.press('ArrowRight');
  const game = await pageGame();
  const replay = new Chess();
  game.history().slice(0, 2).forEach((m) => replay.move(m));
  assert.equal(await fen(), replay.fen());
  await page.keyboard.press('End');
  assert.equal(await fen(), last);
});

test('on the clock Velkor plays White, and a player who does not move loses on time', async () => {
  await page.selectOption('#engine-colour', 'w');
  await page.selectOption('#limit-kind', 'clock');
  await page.fill('#limit-value', '0.03+0');
  await page.click('#new-game');
  await page.waitForFunction(() => document.querySelectorAll('#moves button.move').length === 1);
  assert.match(await text('#clock-black'), /^Black 0:0[12]$/);
  await page.waitForFunction(() => document.getElementById('result').textContent !== '', null, { timeout: 10000 });
  assert.equal(await text('#result'), 'Black has run out of time: White wins.');
  assert.equal(await moveCount(), 1);
  await page.selectOption('#engine-colour', 'b');
  await page.selectOption('#limit-kind', 'depth');
  await page.fill('#limit-value', '3');
  await page.click('#new-game');
});

test('analysis shows rising depth and a principal variation in SAN; stop ends it', async () => {
  // Every depth the panel shows, as it shows it.
  await page.evaluate(() => {
    window.depthsShown = [];
    const cell = document.getElementById('info-depth');
    new MutationObserver(() => window.depthsShown.push(Number(cell.textContent.split('/')[0]))).observe(cell, { childList: true, characterData: true, subtree: true });
  });
  await page.click('#analyse');
  await page.waitForFunction(() => window.depthsShown.at(-1) >= 10, null, { timeout: 30000 });
  const depths = [...new Set(await page.evaluate(() => window.depthsShown))];
  assert.ok(depths.length >= 3, `depths seen: ${depths}`);
  assert.deepEqual(depths, [...depths].sort((a, b) => a - b), `depths seen: ${depths}`);
  const pv = await text('#info-pv');
  assert.match(pv, /^\d+\.(\.\.)?|…/);
  const position = new Chess(await fen());
  const firstSan = pv.replace(/^\d+(\.|…)\s*/, '').split(' ')[0];
  assert.ok(position.moves().includes(firstSan), `${firstSan} is not legal in ${position.fen()}`);
  assert.match(await text('#info-score'), /^[+-]?\d+\.\d\d$|^#-?\d+$/);
  await page.click('#stop');
  assert.equal(await page.isDisabled('#stop'), true);
  const nodes = await text('#info-nodes');
  await page.waitForTimeout(400);
  assert.equal(await text('#info-nodes'), nodes, 'the engine went on after stop');
});

// Scores and the gauge are White's view whoever is to move; a mate shows as #N.
test('the score and the gauge are from White\'s side, and a mate shows as #N', async () => {
  const analyse = async (position, pattern) => {
    await page.fill('#fen', position);
    await page.click('#load-fen');
    await page.click('#analyse');
    await page.waitForFunction((p) => new RegExp(p).test(document.getElementById('info-score').textContent), pattern.source, { timeout: 20000 });
    await page.evaluate(() => document.getElementById('stop').click()); // a mate has ended it already
    return Number(await page.getAttribute('#gauge', 'aria-valuenow'));
  };
  assert.ok((await analyse('4k3/8/8/8/8/8/8/3QK3 b - - 0 1', /^\+\d\d+\.\d\d$/)) >= 95);
  assert.ok((await analyse('3qk3/8/8/8/8/8/8/4K3 w - - 0 1', /^-\d\d+\.\d\d$/)) <= 5);
  assert.equal(await analyse('k7/8/1K6/8/8/8/8/7R w - - 0 1', /^#1$/), 100);
});

// The engine's own reaction, timed inside the browser: a stop during go
// infinite, from the worker's message to bestmove.
test('stop ends go infinite within 100 ms in the browser', async () => {
  const ms = await page.evaluate(
    () =>
      new Promise((done) => {
        const worker = new Worker('./engine/worker.js');
        let sent = 0;
        worker.onmessage = ({ data }) => {
          if (data === 'uciok') worker.postMessage('go infinite');
          if (typeof data === 'string' && data.startsWith('info depth 8 ') && !sent) {
            sent = performance.now();
            worker.postMessage('stop');
          }
          if (typeof data === 'string' && data.startsWith('bestmove')) {
            done(performance.now() - sent);
            worker.terminate();
          }
        };
        worker.postMessage({ start: { args: [] } });
        worker.postMessage('uci');
      }),
  );
  assert.ok(ms < 100, `${ms} ms`);
});

test('a bad FEN or PGN gets a clear message and the board stays as it was', async () => {
  await page.click('input[name="mode"][value="analyse"]');
  const kept = await fen();
  const moves = await moveCount();
  for (const bad of ['rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP w KQkq - 0 1', 'hello', '8/8/8/8/8/8/8/8 w - - 0 1']) {
    await page.fill('#fen', bad);
    await page.click('#load-fen');
    assert.match(await text('#message'), /^That FEN cannot be loaded: \S/);
    assert.equal(await fen(), kept);
  }
  await page.fill('#pgn', '1. e4 e5 2. Ke3 Nf6 *');
  await page.click('#load-pgn');
  assert.match(await text('#message'), /^That PGN cannot be read: \S/);
  assert.equal(await fen(), kept);
  assert.equal(await moveCount(), moves);
  await page.screenshot({ path: `${shots}/bad-fen.png` });
});

test('a PGN loads, and a pawn promotes through the picker', async () => {
  await page.fill('#pgn', '[Event "x"]\n\n1. e4 d5 2. exd5 c6 3. dxc6 Nf6 4. cxb7 Nbd7 *');
  await page.click('#load-pgn');
  assert.equal(await moveCount(), 8);
  await clickMove('b7', 'a8');
  const knight = page.locator('.promotion-dialog-button-group[data-piece="wn"]');
  await knight.waitFor();
  const box = await knight.boundingBox();
  await page.mouse.click(box.x + box.width / 2, box.y + box.height / 2);
  await page.waitForFunction(() => document.querySelectorAll('#moves button.move').length === 9);
  assert.equal((await pageGame()).history().at(-1), 'bxa8=N');
});

test('a worker that dies is reported, and the engine starts again', async () => {
  const worker = page.workers().at(-1);
  await worker.evaluate(() => setTimeout(() => {
    throw new Error('planted fault');
  }));
  await page.waitForSelector('#engine-fault:not([hidden])');
  assert.match(await text('#fault-text'), /planted fault/);
  await page.evaluate(() => window.scrollTo(0, 0));
  await page.screenshot({ path: `${shots}/fault.png` });
  await page.click('#restart');
  await ready(page);
  assert.equal(await page.isHidden('#engine-fault'), true);
  // The planted fault is the one error expected.
  problems.splice(0, problems.length, ...problems.filter((p) => !p.includes('planted fault')));
});

test('a phone gets a small table, and the page fits its screen', async () => {
  const phone = await open({ viewport: { width: 390, height: 844 }, isMobile: true, hasTouch: true, deviceScaleFactor: 2 });
  const sizes = await phone.$$eval('#hash option', (options) => options.map((o) => Number(o.value)));
  assert.ok(sizes.length && Math.max(...sizes) <= 32, String(sizes));
  const width = await phone.evaluate(() => document.documentElement.scrollWidth);
  assert.ok(width <= 390, `the page is ${width} px wide`);
  await phone.screenshot({ path: `${shots}/phone.png`, fullPage: true });
  await phone.close();
});

test('no console errors', async () => {
  await page.screenshot({ path: `${shots}/page.png`, fullPage: true });
  assert.deepEqual(problems, []);
});
