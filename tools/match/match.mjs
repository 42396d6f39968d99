#!/usr/bin/env node
// Velkor match driver: plays full games between Velkor and other UCI engines
// the way a match runner does, referees every move and pv with chess.js, and
// counts every failure. See README.md in this directory.

import { Worker } from 'node:worker_threads';
import { fork } from 'node:child_process';
import { mkdirSync, writeFileSync, appendFileSync, accessSync, constants as fsc } from 'node:fs';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { hostname, setPriority } from 'node:os';
import { performance } from 'node:perf_hooks';
import { loadOpenings } from './lib/referee.mjs';
import { runCompliance } from './lib/compliance.mjs';

const HERE = dirname(fileURLToPath(import.meta.url));
const REPO = resolve(HERE, '..', '..');

const OPPONENTS = {
  glaurung: { name: 'Glaurung', path: '/usr/games/glaurung', options: [['Threads', 1], ['Hash', 16], ['OwnBook', 'false'], ['Ponder', 'false']] },
  toga2: { name: 'Toga2', path: '/usr/games/toga2', options: [['Number of Threads', 1], ['Hash', 16], ['OwnBook', 'false']] },
  stockfish: { name: 'Stockfish', path: '/usr/games/stockfish', options: [['Threads', 1], ['Hash', 16]] },
  ethereal: { name: 'Ethereal', path: '/usr/games/ethereal-chess', options: [['Threads', 1], ['Hash', 16]] },
};

const USAGE = `usage: node tools/match/match.mjs [options]

  --engine PATH          Velkor binary (default: build/release/velkor in the repository)
  --games N              number of games (default 8); openings are played in pairs,
                         Velkor White in the first game of a pair, Black in the second
  --tc T                 time control [moves/]base+inc in seconds (default 2+0.02),
                         e.g. 2+0.02, 10+0.1, 40/10+0.1
  --depth D              games at a fixed depth (go depth D) instead of clocks
  --opponents LIST       comma-separated: glaurung, toga2, stockfish, ethereal,
                         velkor (a second Velkor with the default weights),
                         velkor:GENES (a second Velkor started with -pbil=GENES), or
                         name=/path/to/uci-engine (default glaurung,toga2,stockfish)
  --pbil GENES           start the tested Velkor with -pbil=GENES (84 characters)
  --stockfish-skill N    Stockfish "Skill Level" (default 1)
  --concurrency N        games played at once, each with its own engines (default 2)
  --pgn FILE             PGN output (default build/match/games.pgn in the repository)
  --log-dir DIR          transcripts of games with a failure (default: <pgn dir>/logs)
  --openings FILE        opening lines (default tools/match/openings.txt)
  --seed N               order of the openings (default 1)
  --pair-offset P        start at pair P of that order (default 0), so that several
                         runs with one seed play different openings
  --json FILE            the result as JSON: wins, draws, losses, pentanomial pair
                         counts, failures by kind and engine, every game
  --max-plies N          a game reaching N plies is adjudicated a draw (default 300)
  --resign-moves N       resign adjudication: both engines' last N scores agree that one
                         side is lost by --resign-score or more (default 0 = off)
  --resign-score CP      (default 1000)
  --stall-margin S       seconds beyond the side's clock before a search is a stall (default 10)
  --option NAME=VALUE    setoption for Velkor (repeatable)
  --compliance-only      run only the protocol checks
  --no-compliance        skip the protocol checks
`;

function parseArgs(argv) {
  const o = {
    engine: join(REPO, 'build', 'release', 'velkor'),
    games: 8,
    tc: '2+0.02',
    depth: 0,
    pbil: null,
    pairOffset: 0,
    json: null,
    opponents: 'glaurung,toga2,stockfish',
    stockfishSkill: 1,
    concurrency: 2,
    pgn: join(REPO, 'build', 'match', 'games.pgn'),
    logDir: null,
    openings: join(HERE, 'openings.txt'),
    seed: 1,
    maxPlies: 300,
    resignMoves: 0,
    resignScore: 1000,
    stallMargin: 10,
    options: [],
    complianceOnly: false,
    compliance: true,
  };
  const num = (name, v) => {
    const n = Number(v);
    if (v === undefined || !Number.isFinite(n)) usage(`${name} needs a number`);
    return n;
  };
  for (let i = 0; i < argv.length; i++) {
    const a = argv[i];
    const v = () => {
      if (i + 1 >= argv.length) usage(`${a} needs a value`);
      return argv[++i];
    };
    switch (a) {
      case '--engine': o.engine = resolve(v()); break;
      case '--games': o.games = num(a, v()); break;
      case '--tc': o.tc = v(); break;
      case '--depth': o.depth = num(a, v()); break;
      case '--pbil': o.pbil = genes(v()); break;
      case '--pair-offset': o.pairOffset = num(a, v()); break;
      case '--json': o.json = resolve(v()); break;
      case '--opponents': o.opponents = v(); break;
      case '--stockfish-skill': o.stockfishSkill = num(a, v()); break;
      case '--concurrency': o.concurrency = num(a, v()); break;
      case '--pgn': o.pgn = resolve(v()); break;
      case '--log-dir': o.logDir = resolve(v()); break;
      case '--openings': o.openings = resolve(v()); break;
      case '--seed': o.seed = num(a, v()); break;
      case '--max-plies': o.maxPlies = num(a, v()); break;
      case '--resign-moves': o.resignMoves = num(a, v()); break;
      case '--resign-score': o.resignScore = num(a, v()); break;
      case '--stall-margin': o.stallMargin = num(a, v()); break;
      case '--option': {
        const m = /^([^=]+)=(.*)$/.exec(v());
        if (!m) usage('--option needs NAME=VALUE');
        o.options.push([m[1], m[2]]);
        break;
      }
      case '--compliance-only': o.complianceOnly = true; break;
      case '--no-compliance': o.compliance = false; break;
      case '-h': case '--help': process.stdout.write(USAGE); process.exit(0); break;
      default: usage(`unknown option ${a}`);
    }
  }
  o.logDir ??= join(dirname(o.pgn), 'logs');
  return o;
}

// A -pbil= string as the engine reads it: 84 characters, six a weight.
const GENE_CHARS = 84;
function genes(text) {
  if (text.length !== GENE_CHARS) usage(`a gene string has ${GENE_CHARS} characters, got ${text.length}`);
  return text;
}
const pbilArgs = (text) => (text ? [`-pbil=${text}`] : []);

function usage(msg) {
  process.stderr.write(`${msg}\n\n${USAGE}`);
  process.exit(2);
}

function parseTc(text) {
  const m = /^(?:(\d+)\/)?(\d+(?:\.\d+)?)(?:\+(\d+(?:\.\d+)?))?$/.exec(text);
  if (!m) usage(`bad --tc "${text}"`);
  return { moves: m[1] ? Number(m[1]) : 0, baseMs: Math.round(Number(m[2]) * 1000), incMs: Math.round(Number(m[3] ?? 0) * 1000), pgn: text };
}

function opponentConfigs(list, skill, velkor) {
  return list.split(',').map((s) => s.trim()).filter(Boolean).map((item) => {
    // A second Velkor: the same binary and options, its own weights.
    const v = /^velkor(?::(.*))?$/.exec(item);
    if (v) return { key: `base${v[1] ?? ''}`, name: 'Velkor-base', path: velkor.path, args: pbilArgs(v[1] && genes(v[1])), options: velkor.options };
    const m = /^([^=]+)=(.+)$/.exec(item);
    if (m) return { key: m[1], name: m[1], path: resolve(m[2]), options: [] };
    const known = OPPONENTS[item];
    if (!known) usage(`unknown opponent "${item}" (use name=/path/to/engine for others)`);
    const cfg = { key: item, ...known, options: [...known.options] };
    if (item === 'stockfish') {
      cfg.options.push(['Skill Level', skill]);
      cfg.name = `Stockfish-skill${skill}`;
    }
    return cfg;
  });
}

// Small seeded generator for the order of the openings.
function shuffled(n, seed) {
  let s = (seed >>> 0) || 1;
  const rand = () => {
    s = (s + 0x6d2b79f5) >>> 0;
    let t = s;
    t = Math.imul(t ^ (t >>> 15), t | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };
  const a = [...Array(n).keys()];
  for (let i = n - 1; i > 0; i--) {
    const j = Math.floor(rand() * (i + 1));
    [a[i], a[j]] = [a[j], a[i]];
  }
  return a;
}

const KINDS = ['crash', 'stall', 'illegal', 'illegalPv', 'timeForfeit'];
const KIND_NAME = { crash: 'crash', stall: 'stall', illegal: 'illegal move', illegalPv: 'illegal pv', timeForfeit: 'time forfeit' };

function pad(s, n, right = false) {
  s = String(s);
  return right ? s.padStart(n) : s.padEnd(n);
}

async function main() {
  const opt = parseArgs(process.argv.slice(2));
  const started = performance.now();
  const tc = parseTc(opt.tc);
  try {
    accessSync(opt.engine, fsc.X_OK);
  } catch {
    process.stderr.write(`engine not found or not executable: ${opt.engine}\n`);
    process.exit(2);
  }
  const velkor = { key: 'velkor', name: 'Velkor', path: opt.engine, args: pbilArgs(opt.pbil), options: opt.options, isVelkor: true };
  let passed = 0;
  let failed = 0;

  // Engine processes started by the workers, killed if the driver is stopped.
  const pids = new Set();
  let validator = null;
  const killAll = () => {
    for (const pid of pids) {
      try { process.kill(pid, 'SIGKILL'); } catch { /* gone */ }
    }
    if (validator) validator.kill('SIGKILL');
  };
  for (const sig of ['SIGINT', 'SIGTERM']) {
    process.on(sig, () => {
      killAll();
      process.stderr.write(`\nstopped by ${sig}\n`);
      process.exit(130);
    });
  }

  // Protocol checks
  if (opt.compliance || opt.complianceOnly) {
    console.log(`Protocol checks against ${opt.engine}`);
    const comp = await runCompliance(velkor, {
      onCheck: (c) => console.log(`  ${c.ok ? 'ok  ' : 'FAIL'} ${c.name}${c.ok ? '' : `: ${c.detail}`}`),
    });
    const bad = comp.checks.filter((c) => !c.ok).length;
    passed += comp.checks.length - bad;
    failed += bad;
    console.log(`Protocol checks: ${comp.checks.length - bad} passed, ${bad} failed (${(comp.ms / 1000).toFixed(1)} s)`);
    if (bad) {
      mkdirSync(opt.logDir, { recursive: true });
      const file = join(opt.logDir, 'compliance.log');
      writeFileSync(file, comp.transcript.join('\n') + '\n');
      console.log(`  transcript: ${file}`);
    }
    if (opt.complianceOnly) {
      console.log(`${passed} passed, ${failed} failed`);
      process.exit(failed ? 1 : 0);
    }
  }

  // Schedule
  const openings = loadOpenings(opt.openings);
  const opponents = opponentConfigs(opt.opponents, opt.stockfishSkill, velkor);
  if (!opponents.length) usage('no opponents');
  const order = shuffled(openings.length, opt.seed);
  const date = new Date().toISOString().slice(0, 10).replace(/-/g, '.');
  const jobs = [];
  for (let g = 0; g < opt.games; g++) {
    const pair = opt.pairOffset + Math.floor(g / 2);
    const opening = openings[order[pair % openings.length]];
    const opp = opponents[pair % opponents.length];
    const velkorWhite = g % 2 === 0;
    jobs.push({
      gameNo: g + 1,
      pair,
      round: g + 1,
      opening,
      whiteCfg: velkorWhite ? velkor : opp,
      blackCfg: velkorWhite ? opp : velkor,
      tc,
      depth: opt.depth,
      maxPlies: opt.maxPlies,
      resign: { moves: opt.resignMoves, cp: opt.resignScore },
      stallMarginMs: opt.stallMargin * 1000,
      event: 'Velkor match',
      site: hostname(),
      date,
      logDir: opt.logDir,
    });
  }
  const limitText = opt.depth ? `depth ${opt.depth}` : tc.pgn;
  console.log(`Match: ${opt.games} games at ${limitText}, Velkor (${opt.engine}) against ${opponents.map((o) => o.name).join(', ')}, concurrency ${opt.concurrency}`);
  mkdirSync(dirname(opt.pgn), { recursive: true });
  writeFileSync(opt.pgn, '');
  const pvLog = join(opt.logDir, 'pv-failures.log');

  // Tallies
  const stats = new Map(); // engine name -> counts
  const statFor = (name) => {
    if (!stats.has(name)) stats.set(name, { games: 0, w: 0, d: 0, l: 0, crash: 0, stall: 0, illegal: 0, illegalPv: 0, timeForfeit: 0 });
    return stats.get(name);
  };
  statFor(velkor.name);
  for (const o of opponents) statFor(o.name);
  const endings = new Map();
  const velkorFailedGames = new Set();
  const results = new Map();
  let pvLinesChecked = 0;
  const pvFailures = new Map(); // gameNo -> illegal pvs found in it
  let internalErrors = 0;

  // PV checker in its own low-priority process.
  validator = fork(join(HERE, 'lib', 'pv-check.mjs'), [], { stdio: ['ignore', 'inherit', 'inherit', 'ipc'] });
  try { setPriority(validator.pid, 19); } catch { /* not allowed: runs at normal priority */ }
  const validatorEnded = new Promise((resolveEnd) => {
    validator.on('message', (msg) => {
      if (msg.type === 'ended') resolveEnd();
      if (msg.type !== 'checked') return;
      pvLinesChecked += msg.lines;
      if (!msg.bad.length) return;
      statFor(msg.engine).illegalPv += msg.bad.length;
      const perGame = pvFailures.get(msg.gameNo) ?? [];
      for (const b of msg.bad) perGame.push({ engine: msg.engine, isVelkor: msg.isVelkor, kind: 'illegalPv', detail: `ply ${b.ply}: move ${b.index + 1} "${b.move}" in "${b.line.trim()}"` });
      pvFailures.set(msg.gameNo, perGame);
      if (msg.isVelkor) velkorFailedGames.add(msg.gameNo);
      mkdirSync(opt.logDir, { recursive: true });
      for (const b of msg.bad) {
        console.log(`  !! game ${msg.gameNo}: ${msg.engine} illegal pv at ply ${b.ply}: move ${b.index + 1} "${b.move}" in "${b.line.trim()}"`);
        appendFileSync(pvLog, `game ${msg.gameNo} ${msg.engine} ply ${b.ply}\n  fen: ${b.rootFen}\n  ${b.posCmd}\n  ${b.goCmd}\n  ${b.line.trim()}\n  illegal: move ${b.index + 1} "${b.move}"\n\n`);
      }
    });
    validator.on('exit', () => resolveEnd());
  });

  // Workers
  const nWorkers = Math.max(1, Math.min(opt.concurrency, jobs.length));
  let next = 0;
  let done = 0;
  await new Promise((resolveAll) => {
    if (jobs.length === 0) resolveAll();
    const onResult = (worker, r) => {
      done++;
      if (r.internalError) {
        internalErrors++;
        velkorFailedGames.add(r.gameNo);
        console.log(`[${pad(done, String(jobs.length).length, true)}/${jobs.length}] game ${r.gameNo}: driver error\n${r.internalError}`);
      } else {
        results.set(r.gameNo, r);
        if (r.pgn) appendFileSync(opt.pgn, `${r.pgn}\n\n`);
        endings.set(r.kind, (endings.get(r.kind) ?? 0) + 1);
        const ws = statFor(r.white);
        const bs = statFor(r.black);
        ws.games++;
        bs.games++;
        if (r.result === '1-0') { ws.w++; bs.l++; } else if (r.result === '0-1') { ws.l++; bs.w++; } else { ws.d++; bs.d++; }
        for (const f of r.failures) {
          statFor(f.engine)[f.kind]++;
          if (f.isVelkor) velkorFailedGames.add(r.gameNo);
        }
        console.log(`[${pad(done, String(jobs.length).length, true)}/${jobs.length}] game ${r.gameNo}: ${r.white} - ${r.black} ${r.result} (${r.reason}), ${r.plies} plies, ${r.opening}, ${(r.ms / 1000).toFixed(1)} s`);
        for (const f of r.failures) console.log(`  !! ${f.engine} ${KIND_NAME[f.kind]}: ${f.detail}`);
        if (r.logFile) console.log(`  transcript: ${r.logFile}`);
      }
      if (next < jobs.length) worker.postMessage({ type: 'game', job: jobs[next++] });
      else if (done === jobs.length) resolveAll();
    };
    for (let i = 0; i < nWorkers; i++) {
      const worker = new Worker(join(HERE, 'lib', 'worker.mjs'));
      workers.push(worker);
      worker.on('message', (msg) => {
        if (msg.type === 'pid') {
          if (msg.alive) pids.add(msg.pid); else pids.delete(msg.pid);
        } else if (msg.type === 'pv') {
          validator.send({ type: 'batch', gameNo: msg.gameNo, batch: msg.batch });
        } else if (msg.type === 'result') {
          onResult(worker, msg.result);
        }
      });
      worker.on('error', (err) => {
        console.error(`worker error: ${err.stack || err}`);
        killAll();
        process.exit(3);
      });
      if (next < jobs.length) worker.postMessage({ type: 'game', job: jobs[next++] });
    }
  });

  // Shut the engines down, then wait for the pv checker to finish.
  await Promise.all(workers.map((w) => new Promise((res) => {
    w.on('message', (m) => { if (m.type === 'bye') res(); });
    w.postMessage({ type: 'shutdown' });
  })));
  await Promise.all(workers.map((w) => w.terminate()));
  validator.send({ type: 'end' });
  await validatorEnded;
  killAll();

  // Summary
  const elapsed = (performance.now() - started) / 1000;
  console.log('');
  const cols = ['games', 'w', 'd', 'l', ...KINDS];
  const head = ['engine', 'games', 'win', 'draw', 'loss', 'crash', 'stall', 'illegal', 'illegal-pv', 'time-forfeit'];
  const widths = [20, 6, 5, 5, 5, 6, 6, 8, 11, 13];
  const row = (cells) => cells.map((c, i) => pad(c, widths[i], i > 0)).join('');
  console.log(row(head));
  const total = Object.fromEntries(KINDS.map((k) => [k, 0]));
  for (const [name, s] of stats) {
    if (!s.games && !KINDS.some((k) => s[k])) continue;
    console.log(row([name, ...cols.map((c) => s[c])]));
    for (const k of KINDS) total[k] += s[k];
  }
  console.log(row(['all engines', '', '', '', '', ...KINDS.map((k) => total[k])]));
  const v = statFor(velkor.name);
  const score = v.games ? (100 * (v.w + v.d / 2)) / v.games : 0;
  console.log(`\nVelkor: +${v.w} =${v.d} -${v.l} (${score.toFixed(1)}%)`);
  console.log(`Endings: ${[...endings].map(([k, n]) => `${k} ${n}`).join(', ') || 'none'}`);
  console.log(`PV lines checked: ${pvLinesChecked}`);
  console.log(`PGN: ${opt.pgn}`);
  if (internalErrors) console.log(`Driver errors: ${internalErrors}`);
  console.log(`Time: ${elapsed.toFixed(1)} s`);
  if (opt.json) writeFileSync(opt.json, JSON.stringify(jsonResult(opt, jobs, results, stats, velkor, pvFailures, endings, internalErrors), null, 1) + '\n');
  const gamesFailed = velkorFailedGames.size;
  passed += jobs.length - gamesFailed;
  failed += gamesFailed;
  console.log(`${passed} passed, ${failed} failed`);
  process.exit(failed ? 1 : 0);
}

// The match for programs: Velkor's wins, draws and losses, the pentanomial
// counts of its pairs (0, 1/2, 1, 3/2 or 2 points from the two games of one
// opening), failures by kind for Velkor and for its opponents, every game.
function jsonResult(opt, jobs, results, stats, velkor, pvFailures, endings, internalErrors) {
  const points = (r) => (r.result === '1/2-1/2' ? 0.5 : (r.result === '1-0') === (r.white === velkor.name) ? 1 : 0);
  const games = jobs.map((job) => {
    const r = results.get(job.gameNo);
    if (!r) return { game: job.gameNo, pair: job.pair, opening: job.opening.name, result: null, reason: 'driver error', failures: [] };
    const failures = [...r.failures, ...(pvFailures.get(job.gameNo) ?? [])]
      .map((f) => ({ engine: f.engine, velkor: !!f.isVelkor, kind: f.kind, detail: f.detail }));
    return { game: job.gameNo, pair: job.pair, opening: r.opening, white: r.white, black: r.black, result: r.result,
      reason: r.reason, ending: r.kind, plies: r.plies, points: points(r), failures };
  });
  const penta = [0, 0, 0, 0, 0];
  for (let i = 0; i + 1 < games.length; i += 2) {
    if (games[i].result && games[i + 1].result) penta[2 * (games[i].points + games[i + 1].points)]++;
  }
  const kinds = (s) => Object.fromEntries(KINDS.map((k) => [k, s[k]]));
  const opponentsFailures = Object.fromEntries(KINDS.map((k) => [k, 0]));
  for (const [name, s] of stats) if (name !== velkor.name) for (const k of KINDS) opponentsFailures[k] += s[k];
  const v = stats.get(velkor.name);
  return {
    engine: opt.engine, pbil: opt.pbil, opponents: opt.opponents, depth: opt.depth || null, tc: opt.depth ? null : opt.tc,
    seed: opt.seed, pairOffset: opt.pairOffset, games: games.length, wins: v.w, draws: v.d, losses: v.l, penta,
    failures: { velkor: kinds(v), opponents: opponentsFailures, driver: internalErrors },
    endings: Object.fromEntries(endings), pgn: opt.pgn, results: games,
  };
}

const workers = [];
main().catch((err) => {
  console.error(err.stack || String(err));
  process.exit(3);
});
