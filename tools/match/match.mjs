#!/usr/bin/env node
// Velkor match driver: plays full games between Velkor and other UCI engines
// the way a match runner does, referees every move and pv with chess.js, and
// counts every failure. See README.md in this directory.
//
// With --serve it stays up and plays one match per line of standard input
// (the line a JSON array of the same options), keeping its worker threads and
// their engines between matches; it ends when its input ends.

import { mkdirSync, readFileSync, writeFileSync, appendFileSync, accessSync, constants as fsc } from 'node:fs';
import { dirname, join, resolve } from 'node:path';
import { fileURLToPath } from 'node:url';
import { hostname } from 'node:os';
import { performance } from 'node:perf_hooks';
import { createInterface } from 'node:readline';
import { parseArgs } from 'node:util';
import { loadOpenings, Chess, START_FEN, gameOverByRules } from './lib/referee.mjs';
import { runCompliance } from './lib/compliance.mjs';
import { Pool } from './lib/pool.mjs';
import { UciEngine } from './lib/uci-engine.mjs';
import { GENE_CHARS } from './lib/genes.mjs';

const HERE = dirname(fileURLToPath(import.meta.url));
const REPO = resolve(HERE, '..', '..');

// The engines known by name, with the Debian package of each: the table
// that tools/setup.sh installs from (see opponents.txt).
export function loadOpponents(file = join(HERE, 'opponents.txt')) {
  const table = {};
  for (const line of readFileSync(file, 'utf8').split('\n')) {
    if (!line.trim() || line.trim().startsWith('#')) continue;
    const [key, pkg, path, name, options, byDefault] = line.split('|').map((f) => f.trim());
    table[key] = {
      name, path, package: pkg, byDefault: byDefault === 'default',
      options: options.split(';').map((o) => o.trim()).filter(Boolean).map((o) => o.split('=').map((x) => x.trim())),
    };
  }
  return table;
}
const OPPONENTS = loadOpponents();
const DEFAULT_OPPONENTS = Object.keys(OPPONENTS).filter((k) => OPPONENTS[k].byDefault).join(',');

const USAGE = `usage: node tools/match/match.mjs [options]

  --engine PATH          Velkor binary (default: build/release/velkor in the repository)
  --games N              number of games (default 8); openings are played in pairs,
                         Velkor White in the first game of a pair, Black in the second
  --tc T                 time control [moves/]base+inc in seconds (default 2+0.02),
                         e.g. 2+0.02, 10+0.1, 40/10+0.1
  --depth D              games at a fixed depth (go depth D) instead of clocks
  --opponents LIST       comma-separated: ${Object.keys(OPPONENTS).join(', ')},
                         velkor (a second Velkor with the default weights),
                         velkor:GENES (a second Velkor started with -pbil=GENES), or
                         name=/path/to/uci-engine (default ${DEFAULT_OPPONENTS})
  --pbil GENES           start the tested Velkor with -pbil=GENES (${GENE_CHARS} characters)
  --stockfish-skill N    Stockfish "Skill Level" (default 1)
  --concurrency N        games played at once, each with its own engines (default 2)
  --pgn FILE             PGN output (default build/match/games.pgn in the repository)
  --log-dir DIR          transcripts of games with a failure (default: <pgn dir>/logs)
  --openings FILE        the openings: lines of moves (default tools/match/openings.txt),
                         or a book of positions, FILE.epd (EPD or FEN lines) or FILE.pgn
                         (the final position of each game)
  --check-openings       read and check --openings, print how many positions (a book) or
                         opening lines there are, and stop
  --random-plies N       after the opening line, N random legal plies chosen from the
                         seed and the pair (default 0), for varied self-play
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
  --pv-sample N          check the pvs of every Nth search (default 1: all; 0: none)
  --option NAME=VALUE    setoption for Velkor (repeatable)
  --compliance-only      run only the protocol checks
  --no-compliance        skip the protocol checks
  --serve                play one match per line of standard input, a JSON array of
                         these options, keeping the engines between matches
`;

const OPTION_TYPES = {
  engine: { type: 'string' }, games: { type: 'string' }, tc: { type: 'string' }, depth: { type: 'string' },
  opponents: { type: 'string' }, pbil: { type: 'string' }, 'stockfish-skill': { type: 'string' },
  concurrency: { type: 'string' }, pgn: { type: 'string' }, 'log-dir': { type: 'string' },
  openings: { type: 'string' }, 'random-plies': { type: 'string' }, seed: { type: 'string' },
  'pair-offset': { type: 'string' }, json: { type: 'string' }, 'max-plies': { type: 'string' },
  'resign-moves': { type: 'string' }, 'resign-score': { type: 'string' }, 'stall-margin': { type: 'string' },
  'pv-sample': { type: 'string' }, option: { type: 'string', multiple: true },
  'compliance-only': { type: 'boolean' }, 'check-openings': { type: 'boolean' }, 'no-compliance': { type: 'boolean' }, serve: { type: 'boolean' },
  help: { type: 'boolean', short: 'h' },
};

const NUMBERS = {
  games: 8, depth: 0, 'stockfish-skill': 1, concurrency: 2, 'random-plies': 0, seed: 1, 'pair-offset': 0,
  'max-plies': 300, 'resign-moves': 0, 'resign-score': 1000, 'stall-margin': 10, 'pv-sample': 1,
};

export class UsageError extends Error {}
// An engine of the match that cannot play: said in one line, before any game.
export class EngineUnavailable extends Error {}

// A -pbil= string as the engine reads it: GENE_CHARS characters.
function genes(text) {
  if (text.length !== GENE_CHARS) throw new UsageError(`a gene string has ${GENE_CHARS} characters, got ${text.length}`);
  return text;
}
const pbilArgs = (text) => (text ? [`-pbil=${text}`] : []);

// The options of one match; throws UsageError on anything it cannot take.
export function parseOptions(argv) {
  let values;
  try {
    ({ values } = parseArgs({ args: argv, options: OPTION_TYPES, strict: true, allowPositionals: false }));
  } catch (err) {
    throw new UsageError(err.message);
  }
  const o = {
    engine: resolve(values.engine ?? join(REPO, 'build', 'release', 'velkor')),
    tc: values.tc ?? '2+0.02',
    pbil: values.pbil === undefined ? null : genes(values.pbil),
    json: values.json === undefined ? null : resolve(values.json),
    opponents: values.opponents ?? DEFAULT_OPPONENTS,
    pgn: resolve(values.pgn ?? join(REPO, 'build', 'match', 'games.pgn')),
    openings: resolve(values.openings ?? join(HERE, 'openings.txt')),
    options: (values.option ?? []).map((text) => {
      const m = /^([^=]+)=(.*)$/.exec(text);
      if (!m) throw new UsageError('--option needs NAME=VALUE');
      return [m[1], m[2]];
    }),
    complianceOnly: !!values['compliance-only'],
    compliance: !values['no-compliance'],
    serve: !!values.serve,
    checkOpenings: !!values['check-openings'],
    help: !!values.help,
  };
  for (const [name, fallback] of Object.entries(NUMBERS)) {
    const text = values[name];
    const n = text === undefined ? fallback : Number(text);
    if (!Number.isFinite(n)) throw new UsageError(`--${name} needs a number`);
    o[name.replace(/-(.)/g, (_, c) => c.toUpperCase())] = n;
  }
  o.logDir = values['log-dir'] ? resolve(values['log-dir']) : join(dirname(o.pgn), 'logs');
  o.tcParsed = parseTc(o.tc);
  return o;
}

function parseTc(text) {
  const m = /^(?:(\d+)\/)?(\d+(?:\.\d+)?)(?:\+(\d+(?:\.\d+)?))?$/.exec(text);
  if (!m) throw new UsageError(`bad --tc "${text}"`);
  return { moves: m[1] ? Number(m[1]) : 0, baseMs: Math.round(Number(m[2]) * 1000), incMs: Math.round(Number(m[3] ?? 0) * 1000), pgn: text };
}

// An engine is known by its side of the match and everything it is started
// with, so that a kept process is reused only for the same side, binary,
// arguments and options: the two sides of a self-play game never share one.
const engineKey = (cfg) => JSON.stringify([cfg.isVelkor ? 'tested' : 'opponent', cfg.path, cfg.args ?? [], cfg.options ?? []]);

function opponentConfigs(list, skill, velkor) {
  return list.split(',').map((s) => s.trim()).filter(Boolean).map((item) => {
    // A second Velkor: the same binary and options, its own weights.
    const v = /^velkor(?::(.*))?$/.exec(item);
    if (v) return { name: 'Velkor-base', path: velkor.path, args: pbilArgs(v[1] && genes(v[1])), options: velkor.options };
    const m = /^([^=]+)=(.+)$/.exec(item);
    if (m) return { name: m[1], path: resolve(m[2]), options: [] };
    const known = OPPONENTS[item];
    if (!known) throw new UsageError(`unknown opponent "${item}" (use name=/path/to/engine for others)`);
    const cfg = { ...known, options: [...known.options] };
    if (item === 'stockfish') {
      cfg.options.push(['Skill Level', skill]);
      cfg.name = `Stockfish-skill${skill}`;
    }
    return cfg;
  }).map((cfg) => ({ ...cfg, key: engineKey(cfg) }));
}

// Small seeded generator (mulberry32) for the order of the openings and the random plies.
function generator(seed) {
  let s = (seed >>> 0) || 1;
  return () => {
    s = (s + 0x6d2b79f5) >>> 0;
    let t = s;
    t = Math.imul(t ^ (t >>> 15), t | 1);
    t ^= t + Math.imul(t ^ (t >>> 7), t | 61);
    return ((t ^ (t >>> 14)) >>> 0) / 4294967296;
  };
}

function shuffled(n, seed) {
  const rand = generator(seed);
  const a = [...Array(n).keys()];
  for (let i = n - 1; i > 0; i--) {
    const j = Math.floor(rand() * (i + 1));
    [a[i], a[j]] = [a[j], a[i]];
  }
  return a;
}

// The opening of one pair: its line, then `plies` random legal moves drawn
// from the seed and the pair, stopping short of a position that ends the game.
export function pairOpening(opening, plies, seed, pair) {
  if (!plies) return opening;
  const rand = generator((Math.imul(seed, 0x9e3779b1) ^ Math.imul(pair + 1, 0x85ebca6b)) >>> 0);
  const chess = new Chess(opening.fen ?? START_FEN);
  for (const mv of opening.moves) chess.move({ from: mv.slice(0, 2), to: mv.slice(2, 4), promotion: mv[4] });
  const extra = [];
  for (let k = 0; k < plies; k++) {
    // The moves as SAN alone (no move objects with their FEN texts), in the same order.
    const legal = chess.moves();
    const mv = chess.move(legal[Math.floor(rand() * legal.length)]);
    if (gameOverByRules(chess)) {
      chess.undo();
      break;
    }
    extra.push(mv.lan);
  }
  return { ...opening, name: `${opening.name} +${extra.length}`, moves: [...opening.moves, ...extra] };
}

const KINDS = ['crash', 'stall', 'illegal', 'illegalPv', 'timeForfeit'];
const KIND_NAME = { crash: 'crash', stall: 'stall', illegal: 'illegal move', illegalPv: 'illegal pv', timeForfeit: 'time forfeit' };

function pad(s, n, right = false) {
  s = String(s);
  return right ? s.padStart(n) : s.padEnd(n);
}

// Why an engine cannot play, or null when it starts and answers uci with
// uciok (and isready, after its options); it is ended again either way.
async function unfit(cfg) {
  try {
    accessSync(cfg.path, fsc.X_OK);
  } catch {
    return cfg.package ? `is not installed (Debian package ${cfg.package}; bash tools/match/setup.sh installs it)`
      : 'is not there or not executable';
  }
  const engine = new UciEngine(cfg);
  engine.start();
  try {
    await engine.handshake();
    await engine.quit();
    return null;
  } catch (err) {
    await engine.kill();
    return `does not answer uci with uciok (${err.message.replace(`${cfg.name}: `, '')})`;
  }
}

// Every engine of a match, the tested one and each opponent, is started and
// checked before the first game; once in a driver that serves many matches.
const fit = new Set();
export async function checkEngines(configs) {
  const todo = [...new Map(configs.filter((c) => !fit.has(c.key)).map((c) => [c.key, c])).values()];
  const why = await Promise.all(todo.map(unfit));
  const bad = todo.map((cfg, k) => why[k] && `${cfg.name} (${cfg.path}) ${why[k]}`).filter(Boolean);
  if (bad.length) throw new EngineUnavailable(`cannot play: ${bad.join('; ')}`);
  for (const cfg of todo) fit.add(cfg.key);
}

function testedEngine(opt) {
  const velkor = { name: 'Velkor', path: opt.engine, args: pbilArgs(opt.pbil), options: opt.options, isVelkor: true };
  return { ...velkor, key: engineKey(velkor) };
}

// Each openings file is read and checked once by a driver that serves many
// matches; a bad one is refused as a bad option is.
const openingsRead = new Map();
export function openingsOf(file) {
  if (!openingsRead.has(file)) {
    try {
      openingsRead.set(file, loadOpenings(file));
    } catch (err) {
      throw new UsageError(err.message.startsWith(file) ? err.message : `${file}: ${err.message}`);
    }
  }
  return openingsRead.get(file);
}

// The games of a match: pairs of one opening, the tested side White first.
function schedule(opt, velkor, opponents) {
  const openings = openingsOf(opt.openings);
  const order = shuffled(openings.length, opt.seed);
  const date = new Date().toISOString().slice(0, 10).replace(/-/g, '.');
  const jobs = [];
  let opening = null;
  for (let g = 0; g < opt.games; g++) {
    const pair = opt.pairOffset + Math.floor(g / 2);
    if (g % 2 === 0) opening = pairOpening(openings[order[pair % openings.length]], opt.randomPlies, opt.seed, pair);
    const opp = opponents[pair % opponents.length];
    const velkorWhite = g % 2 === 0;
    jobs.push({
      gameNo: g + 1, pair, round: g + 1, opening,
      whiteCfg: velkorWhite ? velkor : opp,
      blackCfg: velkorWhite ? opp : velkor,
      tc: opt.tcParsed, depth: opt.depth, maxPlies: opt.maxPlies,
      resign: { moves: opt.resignMoves, cp: opt.resignScore },
      stallMarginMs: opt.stallMargin * 1000, pvSample: opt.pvSample,
      event: 'Velkor match', site: hostname(), date, logDir: opt.logDir,
    });
  }
  return jobs;
}

// Wins, draws, losses and failures by engine, as the games and pv checks come in.
class Tally {
  constructor(velkor, opponents) {
    this.velkor = velkor;
    this.stats = new Map();
    this.endings = new Map();
    this.failedGames = new Set(); // games in which the tested Velkor failed
    this.results = new Map();
    this.pvFailures = new Map(); // gameNo -> illegal pvs found in it
    this.pvLines = 0;
    this.driverErrors = 0;
    this.engineCpuMs = 0;
    this.statFor(velkor.name);
    for (const o of opponents) this.statFor(o.name);
  }

  statFor(name) {
    if (!this.stats.has(name)) this.stats.set(name, { games: 0, w: 0, d: 0, l: 0, crash: 0, stall: 0, illegal: 0, illegalPv: 0, timeForfeit: 0 });
    return this.stats.get(name);
  }

  // A failure, from a game or from the pv checker.
  failure(gameNo, engine, isVelkor, kind) {
    this.statFor(engine)[kind]++;
    if (isVelkor) this.failedGames.add(gameNo);
  }

  game(r) {
    this.results.set(r.gameNo, r);
    this.endings.set(r.kind, (this.endings.get(r.kind) ?? 0) + 1);
    this.engineCpuMs += r.engineCpuMs ?? 0;
    const ws = this.statFor(r.white);
    const bs = this.statFor(r.black);
    ws.games++;
    bs.games++;
    if (r.result === '1-0') { ws.w++; bs.l++; } else if (r.result === '0-1') { ws.l++; bs.w++; } else { ws.d++; bs.d++; }
    for (const f of r.failures) this.failure(r.gameNo, f.engine, f.isVelkor, f.kind);
  }

  pvChecked(msg) {
    this.pvLines += msg.lines;
    if (!msg.bad.length) return;
    const perGame = this.pvFailures.get(msg.gameNo) ?? [];
    for (const b of msg.bad) {
      this.failure(msg.gameNo, msg.engine, msg.isVelkor, 'illegalPv');
      perGame.push({ engine: msg.engine, isVelkor: msg.isVelkor, kind: 'illegalPv', detail: `ply ${b.ply}: move ${b.index + 1} "${b.move}" in "${b.line.trim()}"` });
    }
    this.pvFailures.set(msg.gameNo, perGame);
  }
}

// Plays the games of one match on the pool; `log` takes the progress lines.
async function playMatch(opt, pool, log) {
  const velkor = testedEngine(opt);
  const opponents = opponentConfigs(opt.opponents, opt.stockfishSkill, velkor);
  if (!opponents.length) throw new UsageError('no opponents');
  await checkEngines([velkor, ...opponents]);
  const jobs = schedule(opt, velkor, opponents);
  const limitText = opt.depth ? `depth ${opt.depth}` : opt.tc;
  log(`Match: ${opt.games} games at ${limitText}, Velkor (${opt.engine}) against ${opponents.map((o) => o.name).join(', ')}, concurrency ${opt.concurrency}`);
  mkdirSync(dirname(opt.pgn), { recursive: true });
  writeFileSync(opt.pgn, '');
  const pvLog = join(opt.logDir, 'pv-failures.log');
  const tally = new Tally(velkor, opponents);
  const started = performance.now();
  const cpuBefore = process.cpuUsage();
  const width = String(jobs.length).length;
  let done = 0;

  const onPv = (msg) => {
    tally.pvChecked(msg);
    if (!msg.bad.length) return;
    mkdirSync(opt.logDir, { recursive: true });
    for (const b of msg.bad) {
      log(`  !! game ${msg.gameNo}: ${msg.engine} illegal pv at ply ${b.ply}: move ${b.index + 1} "${b.move}" in "${b.line.trim()}"`);
      appendFileSync(pvLog, `game ${msg.gameNo} ${msg.engine} ply ${b.ply}\n  fen: ${b.rootFen}\n  ${b.posCmd}\n  ${b.goCmd}\n  ${b.line.trim()}\n  illegal: move ${b.index + 1} "${b.move}"\n\n`);
    }
  };
  const onResult = (r) => {
    done++;
    const count = `[${pad(done, width, true)}/${jobs.length}]`;
    if (r.internalError) {
      tally.driverErrors++;
      tally.failedGames.add(r.gameNo);
      log(`${count} game ${r.gameNo}: driver error\n${r.internalError}`);
      return;
    }
    tally.game(r);
    for (const checked of r.pvChecked ?? []) onPv(checked);
    if (r.pgn) appendFileSync(opt.pgn, `${r.pgn}\n\n`);
    log(`${count} game ${r.gameNo}: ${r.white} - ${r.black} ${r.result} (${r.reason}), ${r.plies} plies, ${r.opening}, ${(r.ms / 1000).toFixed(1)} s`);
    for (const f of r.failures) log(`  !! ${f.engine} ${KIND_NAME[f.kind]}: ${f.detail}`);
    if (r.logFile) log(`  transcript: ${r.logFile}`);
  };
  const pvCpuMs = await pool.play(jobs, opt.concurrency, onResult, onPv);
  const cpu = process.cpuUsage(cpuBefore);
  tally.driverCpuMs = (cpu.user + cpu.system) / 1000 + pvCpuMs;
  tally.seconds = (performance.now() - started) / 1000;
  const result = jsonResult(opt, jobs, tally);
  if (opt.json) writeFileSync(opt.json, JSON.stringify(result, null, 1) + '\n');
  return { jobs, tally, result };
}

function printSummary(tally, opt, log) {
  log('');
  const cols = ['games', 'w', 'd', 'l', ...KINDS];
  const head = ['engine', 'games', 'win', 'draw', 'loss', 'crash', 'stall', 'illegal', 'illegal-pv', 'time-forfeit'];
  const widths = [20, 6, 5, 5, 5, 6, 6, 8, 11, 13];
  const row = (cells) => cells.map((c, i) => pad(c, widths[i], i > 0)).join('');
  log(row(head));
  const total = Object.fromEntries(KINDS.map((k) => [k, 0]));
  for (const [name, s] of tally.stats) {
    if (!s.games && !KINDS.some((k) => s[k])) continue;
    log(row([name, ...cols.map((c) => s[c])]));
    for (const k of KINDS) total[k] += s[k];
  }
  log(row(['all engines', '', '', '', '', ...KINDS.map((k) => total[k])]));
  const v = tally.statFor(tally.velkor.name);
  const score = v.games ? (100 * (v.w + v.d / 2)) / v.games : 0;
  log(`\nVelkor: +${v.w} =${v.d} -${v.l} (${score.toFixed(1)}%)`);
  log(`Endings: ${[...tally.endings].map(([k, n]) => `${k} ${n}`).join(', ') || 'none'}`);
  log(`PV lines checked: ${tally.pvLines}`);
  log(`PGN: ${opt.pgn}`);
  if (tally.driverErrors) log(`Driver errors: ${tally.driverErrors}`);
}

// The match for programs: Velkor's wins, draws and losses, the pentanomial
// counts of its pairs (0, 1/2, 1, 3/2 or 2 points from the two games of one
// opening), failures by kind for Velkor and for its opponents, every game,
// and where the CPU time went (the engines' and the driver's own).
function jsonResult(opt, jobs, tally) {
  const velkor = tally.velkor;
  const points = (r) => (r.result === '1/2-1/2' ? 0.5 : (r.result === '1-0') === (r.white === velkor.name) ? 1 : 0);
  const games = jobs.map((job) => {
    const r = tally.results.get(job.gameNo);
    if (!r) return { game: job.gameNo, pair: job.pair, opening: job.opening.name, result: null, reason: 'driver error', failures: [] };
    const failures = [...r.failures, ...(tally.pvFailures.get(job.gameNo) ?? [])]
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
  for (const [name, s] of tally.stats) if (name !== velkor.name) for (const k of KINDS) opponentsFailures[k] += s[k];
  const v = tally.stats.get(velkor.name);
  return {
    engine: opt.engine, pbil: opt.pbil, opponents: opt.opponents, depth: opt.depth || null, tc: opt.depth ? null : opt.tc,
    seed: opt.seed, pairOffset: opt.pairOffset, games: games.length, wins: v.w, draws: v.d, losses: v.l, penta,
    failures: { velkor: kinds(v), opponents: opponentsFailures, driver: tally.driverErrors },
    endings: Object.fromEntries(tally.endings), pgn: opt.pgn, pvLines: tally.pvLines,
    cpu: { engines: tally.engineCpuMs / 1000, driver: tally.driverCpuMs / 1000 }, seconds: tally.seconds,
    results: games,
  };
}

async function compliance(velkor, log) {
  log(`Protocol checks against ${velkor.path}`);
  const comp = await runCompliance(velkor, {
    onCheck: (c) => log(`  ${c.ok ? 'ok  ' : 'FAIL'} ${c.name}${c.ok ? '' : `: ${c.detail}`}`),
  });
  const bad = comp.checks.filter((c) => !c.ok).length;
  log(`Protocol checks: ${comp.checks.length - bad} passed, ${bad} failed (${(comp.ms / 1000).toFixed(1)} s)`);
  return { comp, bad };
}

// One match from the command line: protocol checks, games, summary; the exit
// status says whether Velkor failed anywhere.
async function main(opt) {
  const log = (line) => console.log(line);
  const started = performance.now();
  const velkor = testedEngine(opt);
  await checkEngines([velkor, ...(opt.complianceOnly ? [] : opponentConfigs(opt.opponents, opt.stockfishSkill, velkor))]);
  let passed = 0;
  let failed = 0;
  if (opt.compliance || opt.complianceOnly) {
    const { comp, bad } = await compliance(velkor, log);
    passed += comp.checks.length - bad;
    failed += bad;
    if (bad) {
      mkdirSync(opt.logDir, { recursive: true });
      const file = join(opt.logDir, 'compliance.log');
      writeFileSync(file, comp.transcript.join('\n') + '\n');
      log(`  transcript: ${file}`);
    }
    if (opt.complianceOnly) return { passed, failed };
  }
  const pool = new Pool();
  stopOnSignals(pool);
  try {
    const { jobs, tally } = await playMatch(opt, pool, log);
    printSummary(tally, opt, log);
    passed += jobs.length - tally.failedGames.size;
    failed += tally.failedGames.size;
  } finally {
    await pool.close();
  }
  log(`Time: ${((performance.now() - started) / 1000).toFixed(1)} s`);
  return { passed, failed };
}

// Matches from standard input, one JSON array of options a line, answered by
// one JSON line each ({"ok": true} once the --json and --pgn files are
// written, or {"error": "..."}). The engines stay up between matches.
async function serve() {
  const pool = new Pool();
  stopOnSignals(pool);
  const quiet = () => {};
  for await (const line of createInterface({ input: process.stdin, crlfDelay: Infinity })) {
    if (!line.trim()) continue;
    let answer;
    try {
      const args = JSON.parse(line);
      if (!Array.isArray(args) || !args.every((a) => typeof a === 'string')) throw new UsageError('a match is a JSON array of strings');
      const opt = parseOptions(args);
      await playMatch({ ...opt, concurrency: 1 }, pool, quiet);
      answer = { ok: true };
    } catch (err) {
      if (!(err instanceof UsageError) && !(err instanceof SyntaxError) && !(err instanceof EngineUnavailable)) {
        await pool.close();
        throw err;
      }
      answer = { error: err.message };
    }
    process.stdout.write(JSON.stringify(answer) + '\n');
  }
  await pool.close();
}

function stopOnSignals(pool) {
  for (const sig of ['SIGINT', 'SIGTERM']) {
    process.on(sig, () => {
      pool.killAll();
      process.stderr.write(`\nstopped by ${sig}\n`);
      process.exit(130);
    });
  }
}

async function cli() {
  let opt;
  try {
    opt = parseOptions(process.argv.slice(2));
    if (opt.help) {
      process.stdout.write(USAGE);
      return 0;
    }
    if (opt.serve) {
      await serve();
      return 0;
    }
    if (opt.checkOpenings) {
      const openings = openingsOf(opt.openings);
      const positions = openings.every((o) => o.fen && !o.moves.length);
      console.log(`${openings.length} ${positions ? 'positions' : 'opening lines'} in ${opt.openings}`);
      return 0;
    }
    const { passed, failed } = await main(opt);
    console.log(`${passed} passed, ${failed} failed`);
    return failed ? 1 : 0;
  } catch (err) {
    if (err instanceof EngineUnavailable) {
      process.stderr.write(`match: ${err.message}\n`);
      return 2;
    }
    if (!(err instanceof UsageError)) throw err;
    process.stderr.write(opt?.checkOpenings ? `match: ${err.message}\n` : `${err.message}\n\n${USAGE}`);
    return 2;
  }
}

if (process.argv[1] && resolve(process.argv[1]) === fileURLToPath(import.meta.url)) {
  cli().then((code) => process.exit(code), (err) => {
    console.error(err.stack || String(err));
    process.exit(3);
  });
}
