// make bench-web: the engine's bench natively, as WebAssembly under Node and
// in headless chromium, in turn (native, Node, browser, native, ...), each
// ratio to the native run of its own round, then the medians. Every run must
// count the same nodes. Both WebAssembly builds are timed in both places:
// without turns (shared memory: Node's worker thread, a page served
// cross-origin isolated) and with them (Node told VELKOR_WEB_BUILD=turns, a
// page served plainly). With more WebAssembly builds named after the site
// (NAME=BUILD_DIR holding velkor.mjs, NAME ending in "turns" for the build
// with turns; make bench-web-choices), each is run under Node as well.
// Beside the ratio of the times the engine reports, the ratio of processor
// times (user and system, all threads; bash's `times`) is given for the
// runs outside the browser: on a machine busy with other work, it varies
// far less from round to round.
// Usage: node web/tests/bench.mjs NATIVE_BINARY SITE [NAME=WASM_BUILD ...]
import { spawnSync } from 'node:child_process';
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

// bench by a command: {ms: the time it reports, cpu: its processor time in ms}.
function timed(what, command, args = [], env = process.env) {
  const run = spawnSync('bash', ['-c', '"$@"; times >&2', 'bash', command, ...args], { input: 'bench\n', encoding: 'latin1', env, maxBuffer: 1 << 26 });
  if (run.status !== 0) throw new Error(`${what}: status ${run.status}: ${run.stderr.trim()}`);
  // times: the shell's own user and system times, then its children's, as 0m4.123s 0m0.100s.
  const seconds = run.stderr.trim().split('\n').at(-1).split(' ').map((t) => {
    const [, m, sec] = /^(\d+)m([\d.]+)s$/.exec(t);
    return Number(m) * 60 + Number(sec);
  });
  return { ms: measured(run.stdout, what), cpu: (seconds[0] + seconds[1]) * 1000 };
}

const nativeRun = () => timed('native', native);

// A WebAssembly build under Node, through its entry, as a runner starts it.
const nodeRun = (dir, build = 'shared') => timed(dir, 'node', [resolve(dir, 'velkor.mjs')], { ...process.env, VELKOR_WEB_BUILD: build });

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
  return { ms: measured(ms, 'chromium') };
}

const median = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

const sites = { plain: await serve(siteDir), isolated: await serve(siteDir, { isolated: true }) };
const chromium = await browser();
const pages = {};
for (const [kind, site] of Object.entries(sites)) {
  pages[kind] = await chromium.newPage();
  await pages[kind].goto(site.url);
}
const names = ['native', 'node', 'node-turns', 'chromium-isolated', 'chromium', ...builds.map((b) => b.split('=')[0])];
const columns = Object.fromEntries(names.map((name) => [name, { wall: [], cpu: [] }]));
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
    for (const [name, { ms, cpu }] of Object.entries(times)) {
      columns[name].wall.push(times.native.ms / ms);
      if (cpu) columns[name].cpu.push(times.native.cpu / cpu);
    }
    const shown = ([name, { ms, cpu }]) => `${name} ${ms} ms${cpu ? ` (cpu ${Math.round(cpu)} ms)` : ''}`;
    console.log(`round ${round}: ` + Object.entries(times).map(shown).join(', '));
  }
} finally {
  await chromium.close();
  for (const site of Object.values(sites)) site.close();
}
console.log(`bench (${expected} nodes), speed as a ratio to native, median of ${runs}: by the times bench reports | by processor time`);
const list = (ratios) => ratios.map((r) => r.toFixed(3)).join(' ');
for (const [name, { wall, cpu }] of Object.entries(columns)) {
  const byCpu = cpu.length ? `${median(cpu).toFixed(3)}  (${list(cpu)})` : '-';
  console.log(`  ${name.padEnd(18)} ${median(wall).toFixed(3)}  (${list(wall)})  |  ${byCpu}`);
}
