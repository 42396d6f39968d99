// The page as an app, in Debian's chromium, headless: links that open a
// position or a game and an address that follows the board, analysis that
// ends at once (a mate at depth 1, one legal move, a game over), threat
// mode, the engine without turns in a cross-origin isolated page, and, in a
// browser profile of its own on a phone's screen, the app installable,
// working after its server has gone, and announcing a newer build.
import { after, before, test } from 'node:test';
import assert from 'node:assert/strict';
import { cpSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { chromium as playwright } from 'playwright-core';
import { browser, serve } from './site.mjs';

const root = resolve(dirname(fileURLToPath(import.meta.url)), '../..');
const siteDir = process.env.VELKOR_WEB || resolve(root, 'build/web');
const shots = resolve(siteDir, '../web-shots');
mkdirSync(shots, { recursive: true });

const MATE_IN_ONE = '1. e4 e5 2. Bc4 Nc6 3. Qh5 Nf6';
let plain, isolated, chromium;
const problems = [];

async function open(url, options = {}) {
  const page = await chromium.newPage({ viewport: { width: 1280, height: 900 }, ...options });
  watch(page);
  await page.goto(url);
  await ready(page);
  return page;
}

function watch(page) {
  page.on('console', (m) => m.type() === 'error' && problems.push(`${m.type()}: ${m.text()}`));
  page.on('pageerror', (e) => problems.push(`exception: ${e.message}`));
}

const ready = (page) => page.waitForFunction(() => document.getElementById('engine-status').textContent.startsWith('Velkor is ready'), null, { timeout: 30000 });
const link = (kind, text) => `#${kind}=${encodeURIComponent(text)}`;
const panel = (page) =>
  page.evaluate(() => Object.fromEntries(['depth', 'score', 'speed', 'pv', 'note'].map((k) => [k, document.getElementById(`info-${k}`).textContent])));
// Analyses the page's position to the end of a search that ends by itself.
async function analysedToEnd(page) {
  await page.click('#analyse');
  await page.waitForFunction(() => document.getElementById('info-note').textContent !== '', null, { timeout: 20000 });
  return panel(page);
}
// A link followed in an open page (a change of the address's fragment):
// done once the page shows the position given as a FEN, or that many moves.
async function follow(page, url, shown) {
  await page.goto(url);
  if (typeof shown === 'number') await page.waitForFunction((n) => document.querySelectorAll('#moves button.move').length === n, shown);
  else await page.waitForFunction((fen) => document.getElementById('fen').value === fen, shown);
}
const arrows = (page) => page.$$eval('#board [data-arrow]', (list) => list.map((a) => a.getAttribute('data-arrow')));

before(async () => {
  plain = await serve(siteDir);
  isolated = await serve(siteDir, { isolated: true });
  chromium = await browser();
});

after(async () => {
  await chromium?.close();
  plain?.close();
  isolated?.close();
});

test('a #fen= link opens its position; the address follows the game without new history entries', async () => {
  const fen = 'r1bqkbnr/pppp1ppp/2n5/4p3/4P3/5N2/PPPP1PPP/RNBQKB1R w KQkq - 2 3';
  const page = await open(plain.url + link('fen', fen));
  assert.equal(await page.inputValue('#fen'), fen);
  assert.equal(await page.isChecked('input[name="mode"][value="analyse"]'), true);
  await follow(page, plain.url + link('pgn', MATE_IN_ONE), 6);
  const entries = await page.evaluate(() => history.length);
  await page.click('#nav-back');
  await page.click('#nav-back');
  const back = page.url();
  assert.match(back, /#pgn=.*&ply=4$/);
  assert.equal(await page.evaluate(() => history.length), entries);
  // The address is the link: opened anew, it shows the same position.
  const shown = await page.inputValue('#fen');
  const again = await open(back);
  assert.equal(await again.inputValue('#fen'), shown);
  await again.click('#copy-link');
  await again.waitForFunction(() => /link to this position/.test(document.getElementById('message').textContent));
  await again.close();
  await page.close();
});

test('a search that ends at once is shown as what it is', async () => {
  const page = await open(plain.url + link('pgn', MATE_IN_ONE));
  let shown = await analysedToEnd(page);
  assert.match(shown.depth, /^1\/\d+$/);
  assert.equal(shown.score, '#1');
  assert.equal(shown.pv, '4. Qxf7#');
  assert.doesNotMatch(shown.speed, /undefined|^0 kN\/s$/);
  assert.equal(shown.note, 'White mates in 1: the search ends at depth 1.');
  assert.deepEqual(await arrows(page), ['h5f7']);
  await page.screenshot({ path: `${shots}/mate-in-one.png` });

  await follow(page, plain.url + link('fen', '7k/8/8/8/8/8/6Q1/K7 b - - 0 1'), '7k/8/8/8/8/8/6Q1/K7 b - - 0 1');
  shown = await analysedToEnd(page);
  assert.deepEqual([shown.depth, shown.pv, shown.note], ['–', '1… Kh7', 'The only legal move: played without a search.']);
  assert.deepEqual(await arrows(page), ['h8h7']);

  await follow(page, plain.url + link('fen', 'k7/1Q6/1K6/8/8/8/8/8 b - - 0 1'), 'k7/1Q6/1K6/8/8/8/8/8 b - - 0 1');
  shown = await analysedToEnd(page);
  assert.deepEqual([shown.depth, shown.speed, shown.note], ['–', '–', 'Checkmate: White has won; there is nothing to search.']);
  assert.deepEqual(await arrows(page), []);
  await page.close();
});

test('threat mode (x) finds what the last move threatens, and is not offered in check', async () => {
  const page = await open(plain.url + link('pgn', '1. e4 e5 2. Bc4 Nc6 3. Qh5'));
  await page.focus('#board');
  await page.keyboard.press('x');
  await page.waitForFunction(() => / mates in /.test(document.getElementById('info-note').textContent), null, { timeout: 20000 });
  assert.equal(await page.getAttribute('#threat', 'aria-pressed'), 'true');
  const shown = await panel(page);
  assert.deepEqual([shown.score, shown.pv], ['#1', '3. Qxf7#']);
  assert.equal(shown.note, 'Threat: White to move again. White mates in 1: the search ends at depth 1.');
  assert.deepEqual(await arrows(page), ['h5f7']);
  await page.screenshot({ path: `${shots}/threat.png` });
  // Black in check from the bishop: no threat mode.
  await follow(page, plain.url + link('pgn', '1. e4 f5 2. Bc4 d6 3. Bxg8 e5 4. Qh5+'), 7);
  assert.equal(await page.isDisabled('#threat'), true);
  await page.focus('#board');
  await page.keyboard.press('x');
  assert.equal(await page.textContent('#message'), 'No threat mode here: the side to move is in check.');
  await page.close();
});

test('go deeper carries a search to a depth on', async () => {
  const page = await open(plain.url);
  await page.click('input[name="mode"][value="analyse"]');
  await page.selectOption('#analysis-limit', 'depth');
  await page.fill('#analysis-value', '5');
  assert.deepEqual(await analysedToEnd(page).then((s) => s.note), 'The search ended at depth 5.');
  await page.click('#deeper');
  await page.waitForFunction(() => document.getElementById('info-note').textContent === 'The search ended at depth 7.', null, { timeout: 20000 });
  await page.close();
});

test('a cross-origin isolated page runs the engine without turns, and stop is heard within 100 ms', async () => {
  const page = await open(isolated.url);
  assert.match(await page.textContent('#engine-status'), /shared memory/);
  const ms = await page.evaluate(async () => {
    const { InputRing } = await import('./engine/ring.mjs');
    const ring = new InputRing();
    return new Promise((done) => {
      const worker = new Worker('./engine/worker.js');
      let sent = 0;
      worker.onmessage = ({ data }) => {
        if (typeof data === 'string' && data.startsWith('info depth 8 ') && !sent) {
          sent = performance.now();
          ring.write('stop\n');
        }
        if (typeof data === 'string' && data.startsWith('bestmove')) {
          done(performance.now() - sent);
          worker.terminate();
        }
      };
      worker.postMessage({ start: { args: [], ring: ring.buffer } });
      ring.write('go infinite\n');
    });
  });
  assert.ok(ms < 100, `${ms} ms`);
  await page.close();
});

// Its own copy of the site, so that a newer build can be made, and its own
// browser profile (an incognito one cannot install apps).
test('the app installs, works with its server gone, and announces a newer build', async () => {
  const copy = mkdtempSync(join(tmpdir(), 'velkor-app-'));
  cpSync(siteDir, join(copy, 'site'), { recursive: true });
  let server = await serve(join(copy, 'site'));
  const context = await playwright.launchPersistentContext(join(copy, 'profile'), {
    executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-gpu', '--no-first-run'],
    viewport: { width: 390, height: 844 },
    isMobile: true,
    hasTouch: true,
    deviceScaleFactor: 2,
  });
  try {
    const page = await context.newPage();
    watch(page);
    await page.goto(server.url);
    await ready(page);
    const cdp = await context.newCDPSession(page);
    assert.deepEqual((await cdp.send('Page.getInstallabilityErrors')).installabilityErrors, []);
    await page.waitForFunction(() => navigator.serviceWorker.controller !== null, null, { timeout: 20000 });
    // Installed and launched as the browser would from its install button.
    await cdp.send('PWA.install', { manifestId: server.url, installUrlOrBundleUrl: server.url });
    const [app] = await Promise.all([context.waitForEvent('page'), cdp.send('PWA.launch', { manifestId: server.url })]);
    await app.setViewportSize({ width: 390, height: 844 });
    await ready(app);
    await app.screenshot({ path: `${shots}/app-installed-phone.png` });
    await app.close();

    server.close();
    await page.reload();
    await ready(page);
    await page.click('#analyse');
    await page.waitForFunction(() => Number(document.getElementById('info-depth').textContent.split('/')[0]) >= 6, null, { timeout: 20000 });
    await page.click('#stop');
    await page.screenshot({ path: `${shots}/app-offline-phone.png` });

    // A newer build on the same address.
    const sw = join(copy, 'site', 'sw.js');
    writeFileSync(sw, readFileSync(sw, 'utf8').replace(/"name":"(velkor-[0-9a-f]+)"/, '"name":"$1-next"'));
    server = await serve(join(copy, 'site'), { port: Number(new URL(server.url).port) });
    await page.evaluate(() => navigator.serviceWorker.getRegistration().then((r) => r.update()));
    await page.waitForSelector('#update:not([hidden])', { timeout: 20000 });
    assert.match(await page.textContent('#update'), /A new version is ready/);
    await Promise.all([page.waitForEvent('load'), page.click('#update-reload')]);
    await ready(page);
    assert.deepEqual(await page.evaluate(() => caches.keys()).then((names) => names.every((n) => n.endsWith('-next'))), true);
  } finally {
    await context.close();
    server.close();
    rmSync(copy, { recursive: true, force: true });
  }
});

test('no console errors', () => {
  assert.deepEqual(problems, []);
});
