// Velkor's one JavaScript client: the UCI lines it sends, the lines it reads
// back, and the one queue every command goes through. It knows nothing of
// where the engine runs: a port hands it the engine's lines (receive) and
// its end (ended), and takes the lines it writes (port.send).
//
// Any line that reaches Velkor during a search ends that search, so the
// queue sends nothing while one runs but `stop`, and only when asked to.

const NUMBERS = new Set(['depth', 'seldepth', 'multipv', 'time', 'nodes', 'nps', 'hashfull', 'tbhits', 'cpuload',
  'currmovenumber']);
// Words that can follow a pv: anything else after "pv" is a move, which a
// referee then finds legal or not.
const WORDS = new Set([...NUMBERS, 'score', 'pv', 'currmove', 'string', 'refutation', 'currline', 'wdl', 'sbhits',
  'lowerbound', 'upperbound', 'cp', 'mate']);
const MOVE = /^([a-h][1-8][a-h][1-8][qrbn]?|0000)$/;

// An info line as an object: { depth, seldepth, score: { cp } or { mate }
// (with bound: 'lowerbound' or 'upperbound' when it is one), nodes, nps,
// time, hashfull, pv: [moves], currmove, currmovenumber, string }; what the
// line lacks is left out. Words it does not know are passed over.
export function parseInfo(line) {
  const words = line.trim().split(/\s+/);
  const info = {};
  for (let i = 1; i < words.length; i++) {
    const word = words[i];
    if (word === 'string') {
      info.string = words.slice(i + 1).join(' ');
      break;
    }
    if (NUMBERS.has(word)) {
      const value = Number(words[i + 1]);
      if (Number.isFinite(value)) info[word] = value;
      i++;
    } else if (word === 'score') {
      const kind = words[i + 1];
      const value = Number(words[i + 2]);
      if ((kind === 'cp' || kind === 'mate') && Number.isInteger(value)) {
        info.score = { [kind]: value };
        i += 2;
        if (words[i + 1] === 'lowerbound' || words[i + 1] === 'upperbound') info.score.bound = words[++i];
      }
    } else if (word === 'pv') {
      info.pv = [];
      while (i + 1 < words.length && !WORDS.has(words[i + 1])) info.pv.push(words[++i]);
    } else if (word === 'currmove') {
      info.currmove = words[++i];
    }
  }
  return info;
}

// "bestmove e2e4 ponder e7e5" as { move, ponder }; move is null when the
// engine had none to give (a game over: "bestmove 0000").
export function parseBestmove(line) {
  const words = line.trim().split(/\s+/);
  const move = words[1] && words[1] !== '0000' && words[1] !== '(none)' ? words[1] : null;
  const at = words.indexOf('ponder');
  return at > 0 && words[at + 1] ? { move, ponder: words[at + 1] } : { move };
}

// The position line of { fen, moves }: no fen (or "startpos") means the
// start position; moves are in coordinates.
export function positionLine({ fen, moves = [] } = {}) {
  for (const move of moves) {
    if (typeof move !== 'string' || !MOVE.test(move)) throw new TypeError(`not a move in coordinates: ${move}`);
  }
  const start = !fen || fen === 'startpos' ? 'position startpos' : `position fen ${checkedFen(fen)}`;
  return moves.length ? `${start} moves ${moves.join(' ')}` : start;
}

function checkedFen(fen) {
  const text = String(fen).trim();
  if (!/^[^\n\r]+$/.test(text) || text.split(/\s+/).length > 6) throw new TypeError(`not a FEN: ${fen}`);
  return text.replace(/\s+/g, ' ');
}

const LIMITS = ['depth', 'movetime', 'wtime', 'btime', 'winc', 'binc', 'movestogo'];

// The go line of a limit: { depth }, { movetime } (ms), the clocks
// { wtime, btime, winc, binc, movestogo } (ms), { infinite: true }, or {}
// (the engine's own choice).
export function goLine(limits = {}) {
  if (limits.infinite) return 'go infinite';
  const words = ['go'];
  for (const key of Object.keys(limits)) {
    if (!LIMITS.includes(key) && key !== 'infinite') throw new TypeError(`unknown limit: ${key}`);
  }
  if (limits.depth !== undefined) return `go depth ${count(limits.depth, 'depth')}`;
  if (limits.movetime !== undefined) return `go movetime ${count(limits.movetime, 'movetime')}`;
  for (const key of LIMITS.slice(2)) if (limits[key] !== undefined) words.push(key, count(limits[key], key));
  return words.join(' ');
}

function count(value, name) {
  if (!Number.isInteger(value) || value < 0) throw new TypeError(`${name} must be a whole number of 0 or more: ${value}`);
  return value;
}

// The engine's end, as a rejection of whatever waits on it.
export class EngineEnded extends Error {}

// One engine behind a port. Each command waits its turn in the queue: a
// handshake (lines, then the answer that ends them) or a search (position
// and go, then bestmove). A search's info lines go to its onInfo, parsed,
// as they come.
export class UciClient {
  constructor(port) {
    this.port = port;
    this.tail = Promise.resolve();
    this.current = null; // the command whose answer is awaited
    this.endedWith = null;
    this.queued = new Set(); // searches waiting their turn
    this.onLine = null; // sees every line, for a log
  }

  // Sends lines and collects what comes back up to the line that `done`
  // accepts (included). Resolves with those lines.
  command(lines, done) {
    return this.enqueue({ lines, done, kind: 'command' });
  }

  // Lines that have no answer (setoption, ucinewgame): sent in their turn;
  // resolves once they are.
  post(lines) {
    return this.enqueue({ lines, done: null, kind: 'post' });
  }

  // A search: resolves with { move, ponder, info (the last report with a
  // depth, or {}), score (of the closing info line, or null), strings (the
  // info string texts), lines }.
  async search(position, limits, onInfo) {
    const lines = [positionLine(position), goLine(limits)];
    return this.enqueue({ lines, done: (line) => line.startsWith('bestmove'), kind: 'search', onInfo });
  }

  // Ends the running search, if one runs; its promise resolves as usual.
  stop() {
    const current = this.current;
    if (current && current.kind === 'search' && current.sent && !current.stopped) {
      current.stopped = true;
      this.port.send('stop');
    }
  }

  // A newer search replaces the running one and those still waiting: the
  // running one is stopped, the waiting ones resolve with no move, unsent.
  supersede() {
    for (const task of this.queued) task.skipped = true;
    this.stop();
  }

  get searching() {
    return Boolean(this.current && this.current.kind === 'search');
  }

  enqueue(task) {
    if (task.kind === 'search') this.queued.add(task);
    const run = this.tail.then(() => this.run(task));
    this.tail = run.catch(() => {});
    return run;
  }

  run(task) {
    this.queued.delete(task);
    if (this.endedWith) return Promise.reject(new EngineEnded(this.endedWith));
    if (task.skipped) return Promise.resolve({ move: null, info: {}, score: null, strings: [], lines: [], skipped: true });
    return new Promise((resolve, reject) => {
      Object.assign(task, { resolve, reject, received: [], info: {}, score: null, strings: [] });
      this.current = task;
      task.sent = true;
      for (const line of task.lines) this.port.send(line);
      if (!task.done) {
        this.current = null;
        resolve();
      }
    });
  }

  // A line from the engine.
  receive(line) {
    if (this.onLine) this.onLine(line);
    const task = this.current;
    if (!task) return;
    task.received.push(line);
    if (task.kind === 'search' && line.startsWith('info')) {
      const info = parseInfo(line);
      if (info.string !== undefined) task.strings.push(info.string);
      if (info.score && info.depth === undefined) task.score = info.score;
      if (info.depth !== undefined && info.score) task.info = info;
      if (task.onInfo) task.onInfo(info);
    }
    if (!task.done(line)) return;
    this.current = null;
    if (task.kind === 'command') return task.resolve(task.received);
    const { move, ponder } = parseBestmove(line);
    task.resolve({ move, ponder, info: task.info, score: task.score, strings: task.strings, lines: task.received });
  }

  // The engine has ended (why, in words): what waits is rejected, and so is
  // every later command.
  ended(why) {
    this.endedWith = why || 'the engine has ended';
    const task = this.current;
    this.current = null;
    if (task) task.reject(new EngineEnded(this.endedWith));
  }
}
