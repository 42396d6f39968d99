// make bench-web: the engine's bench natively, as WebAssembly under Node and
// in headless chromium, in turn (native, Node, browser, native, ...), each
// ratio to the native run of its own round, then the medians. Every run must
// count the same nodes. Both WebAssembly builds are timed in both places:
// without turns (shared memory: Node's worker thread, a page served
// cross-origin isolated) and with them (Node told VELKOR_WEB_BUILD=turns, a
// page served plainly). With more WebAssembly builds named after the site
// (NAME=BUILD_DIR holding velkor.mjs, NAME ending in "turns" for the build
// with turns; make bench-web-choices), each is run under Node as well.
// Usage: node web/tests/bench.mjs NATIVE_BINARY SITE [NAME=WASM_BUILD ...]
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { resolve } from 'node:path';
import { browser, serve } from './site.mjs';

const [native, siteDir, ...builds] = process.argv.slice(2);
const runs = Number(process.env.RUNS || 5);
const LINE = /^(\d+) nodes in (\d+) ms/m;
const expected = readFileSync(new URL('../../tests/data/bench.txt', import.meta.url), 'utf8').split('\n').find((l) => /^\d+$/.test(l));

function measured(output, what) {
  const found = LINE.exec(output);
  if (!found) throw new Error(`${what}: no bench line in its output`);
  if (found[1] !== expected) throw new Error(`${what}: ${found[1]} nodes, not ${expected}`);
  return Number(found[2]);
}

const nativeRun = () => measured(execFileSync(native, { input: 'bench\n', encoding: 'latin1' }), 'native');

// A WebAssembly build under Node, through its entry, as a runner starts it.
const nodeRun = (dir, build = 'shared') =>
  measured(execFileSync('node', [resolve(dir, 'velkor.mjs')], { input: 'bench\n', encoding: 'latin1', env: { ...process.env, VELKOR_WEB_BUILD: build } }), dir);

// The page's own engine, as the page starts it: with a ring where the page
// is cross-origin isolated.
async function browserRun(page) {
  const ms = await page.evaluate(async () => {
    const { InputRing } = await import('./engine/ring.mjs');
    const ring = crossOriginIsolated ? new InputRing() : null;
    return new Promise((done) => {
      const worker = new Worker('./engine/worker.js');
      worker.onmessage = ({ data }) => {
        if (typeof data === 'string' && / nodes in \d+ ms/.test(data)) {
          worker.terminate();
          done(data);
        }
      };
      worker.postMessage({ start: { args: [], ring: ring?.buffer } });
      if (ring) ring.write('bench\n');
      else worker.postMessage('bench');
    });
  });
  return measured(ms, 'chromium');
}

const median = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

const sites = { plain: await serve(siteDir), isolated: await serve(siteDir, { isolated: true }) };
const chromium = await browser();
const pages = {};
for (const [kind, site] of Object.entries(sites)) {
  pages[kind] = await chromium.newPage();
  await pages[kind].goto(site.url);
}
const columns = { native: [], node: [], 'node-turns': [], 'chromium-isolated': [], chromium: [], ...Object.fromEntries(builds.map((b) => [b.split('=')[0], []])) };
try {
  for (let round = 1; round <= runs; round++) {
    const engine = resolve(siteDir, 'engine');
    const times = {
      native: nativeRun(),
      node: nodeRun(engine),
      'node-turns': nodeRun(engine, 'turns'),
      'chromium-isolated': await browserRun(pages.isolated),
      chromium: await browserRun(pages.plain),
    };
    for (const build of builds) {
      const [name, dir] = build.split('=');
      times[name] = nodeRun(dir, name.endsWith('turns') ? 'turns' : 'shared');
    }
    for (const [name, ms] of Object.entries(times)) columns[name].push(times.native / ms);
    console.log(`round ${round}: ` + Object.entries(times).map(([name, ms]) => `${name} ${ms} ms`).join(', '));
  }
} finally {
  await chromium.close();
  for (const site of Object.values(sites)) site.close();
}
console.log(`bench (${expected} nodes), speed as a ratio to native, median of ${runs}:`);
for (const [name, ratios] of Object.entries(columns)) {
  console.log(`  ${name.padEnd(18)} ${median(ratios).toFixed(3)}  (${ratios.map((r) => r.toFixed(3)).join(' ')})`);
}
