// A UCI engine process seen from the match driver: line-based I/O with
// arrival timestamps, deadlines, and detection of crashes (process exit or
// stdout closed while the driver still expects output).

import { spawn } from 'node:child_process';
import { readFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { performance } from 'node:perf_hooks';

export class EngineFailure extends Error {
  // kind: 'crash' (process gone / stdout closed) or 'stall' (deadline passed)
  constructor(kind, message) {
    super(message);
    this.kind = kind;
  }
}

export const SYNC_TIMEOUT_MS = 10000;
const CLOCK_TICKS = 100; // the kernel's USER_HZ, 100 on every Linux build

export class UciEngine {
  // cfg: { name, path, args, options: [[name, value]...] }
  // onSpawn/onExit(pid): lets the owner track processes for clean-up.
  constructor(cfg, { onSpawn, onExit } = {}) {
    this.cfg = cfg;
    this.name = cfg.name;
    this.onSpawn = onSpawn;
    this.onExit = onExit;
    this.log = null; // array of transcript lines, set per game by the owner
    this.queue = [];
    this.reader = null; // the readUntil waiting for its last line
    this.alive = false;
    this.quitting = false;
    this.idName = null;
    this.idAuthor = null;
    this.exitText = '';
  }

  record(dir, text, t = performance.now()) {
    if (this.log && this.log.length < 500000) this.log.push(`${t.toFixed(1).padStart(10)} ${this.name} ${dir} ${text}`);
  }

  start() {
    this.queue = [];
    this.quitting = false;
    this.exitText = '';
    const proc = spawn(this.cfg.path, this.cfg.args ?? [], { cwd: tmpdir(), stdio: ['pipe', 'pipe', 'pipe'] });
    this.proc = proc;
    this.alive = true;
    this.record('**', `started ${this.cfg.path} pid ${proc.pid}`);
    if (proc.pid && this.onSpawn) this.onSpawn(proc.pid);
    let buf = '';
    proc.stdout.setEncoding('utf8');
    proc.stdout.on('data', (chunk) => {
      const t = performance.now();
      buf += chunk;
      let nl;
      while ((nl = buf.indexOf('\n')) >= 0) {
        const text = buf.slice(0, nl).replace(/\r$/, '');
        buf = buf.slice(nl + 1);
        this.record('>', text, t);
        this.push({ text, t });
      }
    });
    let errBuf = '';
    proc.stderr.setEncoding('utf8');
    proc.stderr.on('data', (chunk) => {
      errBuf += chunk;
      let nl;
      while ((nl = errBuf.indexOf('\n')) >= 0) {
        this.record('!', errBuf.slice(0, nl));
        errBuf = errBuf.slice(nl + 1);
      }
    });
    proc.stdin.on('error', () => {}); // EPIPE: reported through 'close'
    const gone = (why) => {
      if (!this.alive || this.proc !== proc) return;
      this.alive = false;
      this.exitText = why;
      this.record('**', why);
      if (buf) {
        this.record('>', buf);
        this.push({ text: buf, t: performance.now() });
        buf = '';
      }
      if (this.reader) {
        const r = this.reader;
        this.reader = null;
        clearTimeout(r.timer);
        r.reject(new EngineFailure('crash', `${this.name}: ${why}`));
      }
    };
    proc.stdout.on('end', () => gone('stdout closed'));
    proc.on('error', (err) => gone(`cannot run: ${err.message}`));
    proc.on('exit', (code, signal) => {
      if (proc.pid && this.onExit) this.onExit(proc.pid);
      const why = signal ? `exited on signal ${signal}` : `exited with code ${code}`;
      this.record('**', why);
      if (this.alive && this.proc === proc) {
        // Give stdout a moment to deliver what was written before the exit.
        setTimeout(() => gone(why), 50);
      }
    });
  }

  push(item) {
    const r = this.reader;
    if (!r) {
      this.queue.push(item);
    } else if (r.isLast(item.text)) {
      this.reader = null;
      clearTimeout(r.timer);
      r.resolve({ lines: r.lines, last: item });
    } else {
      r.lines.push(item.text);
    }
  }

  // The CPU time (user and system) the process has used so far, in ms, read
  // from /proc; 0 where there is no /proc or no process.
  cpuMs() {
    if (!this.alive || !this.proc?.pid) return 0;
    try {
      const stat = readFileSync(`/proc/${this.proc.pid}/stat`, 'latin1');
      const fields = stat.slice(stat.lastIndexOf(')') + 2).split(' ');
      return (Number(fields[11]) + Number(fields[12])) * (1000 / CLOCK_TICKS);
    } catch {
      return 0;
    }
  }

  // Writes commands, a line each; returns the time they were written.
  // Several lines go in one write, which costs the driver one system call.
  send(...lines) {
    if (!this.alive) throw new EngineFailure('crash', `${this.name}: ${this.exitText || 'not running'}`);
    const t = performance.now();
    for (const line of lines) this.record('<', line, t);
    this.proc.stdin.write(lines.join('\n') + '\n');
    return t;
  }

  // Reads until a line satisfies `isLast`; resolves with { lines, last }
  // (the lines before it, and it with its arrival time), or rejects with
  // EngineFailure at `deadline` (a performance.now() value) or when the
  // process is gone. One timer for the whole wait, the lines taken as they
  // arrive.
  readUntil(isLast, deadline) {
    const lines = [];
    while (this.queue.length) {
      const item = this.queue.shift();
      if (isLast(item.text)) return Promise.resolve({ lines, last: item });
      lines.push(item.text);
    }
    if (!this.alive) return Promise.reject(new EngineFailure('crash', `${this.name}: ${this.exitText || 'not running'}`));
    return new Promise((resolve, reject) => {
      const ms = Math.max(0, deadline - performance.now());
      const timer = setTimeout(() => {
        this.reader = null;
        reject(new EngineFailure('stall', `${this.name}: no answer within ${(ms / 1000).toFixed(1)} s`));
      }, ms);
      this.reader = { isLast, lines, resolve, reject, timer };
    });
  }

  // isready -> readyok; returns the lines that came before readyok.
  // With `before`, that command goes first, in the same write.
  async sync(timeoutMs = SYNC_TIMEOUT_MS, before = null) {
    const t = before === null ? this.send('isready') : this.send(before, 'isready');
    const { lines } = await this.readUntil((s) => s.trim() === 'readyok', t + timeoutMs);
    return lines;
  }

  // uci -> uciok, options, isready. Returns the lines before uciok.
  async handshake(timeoutMs = SYNC_TIMEOUT_MS) {
    const t = this.send('uci');
    const { lines } = await this.readUntil((s) => s.trim() === 'uciok', t + timeoutMs);
    for (const l of lines) {
      const m = /^id\s+(name|author)\s+(.*)$/.exec(l.trim());
      if (m && m[1] === 'name') this.idName = m[2];
      if (m && m[1] === 'author') this.idAuthor = m[2];
    }
    for (const [name, value] of this.cfg.options ?? []) this.send(`setoption name ${name} value ${value}`);
    await this.sync(timeoutMs);
    return lines;
  }

  // Ends the process: "quit", then SIGKILL if it is still there after graceMs.
  async quit(graceMs = 1000) {
    if (!this.proc) return;
    const proc = this.proc;
    this.quitting = true;
    if (proc.exitCode !== null || proc.signalCode !== null) return;
    const exited = new Promise((resolve) => proc.once('exit', resolve));
    try {
      if (this.alive) this.send('quit');
    } catch {
      /* already gone */
    }
    this.alive = false;
    const timer = setTimeout(() => proc.kill('SIGKILL'), graceMs);
    await exited;
    clearTimeout(timer);
  }

  async kill() {
    if (!this.proc) return;
    const proc = this.proc;
    this.alive = false;
    if (proc.exitCode !== null || proc.signalCode !== null) return;
    const exited = new Promise((resolve) => proc.once('exit', resolve));
    proc.kill('SIGKILL');
    await exited;
  }
}
