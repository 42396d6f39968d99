// The match workers and the pv checker, kept from one match to the next: each
// worker thread owns its engine processes (see worker.mjs), the checker
// replays pvs in its own low-priority process.

import { Worker } from 'node:worker_threads';
import { fork } from 'node:child_process';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { setPriority } from 'node:os';

const HERE = dirname(fileURLToPath(import.meta.url));

export class Pool {
  constructor() {
    this.workers = [];
    this.pids = new Set(); // engine processes, killed if the driver is stopped
    this.validator = null;
    this.onPv = null; // the current match's handler of checked pvs
    this.flushes = new Map();
    this.flushCount = 0;
  }

  checker() {
    if (this.validator) return this.validator;
    const v = fork(join(HERE, 'pv-check.mjs'), [], { stdio: ['ignore', 'inherit', 'inherit', 'ipc'] });
    try { setPriority(v.pid, 19); } catch { /* not allowed: runs at normal priority */ }
    v.on('message', (msg) => {
      if (msg.type === 'checked') this.onPv?.(msg);
      else if (msg.type === 'flushed') {
        this.flushes.get(msg.id)?.(msg.cpuMs);
        this.flushes.delete(msg.id);
      }
    });
    v.on('exit', () => {
      for (const done of this.flushes.values()) done(0);
      this.flushes.clear();
      if (this.validator === v) this.validator = null;
    });
    this.validator = v;
    return v;
  }

  // Resolves once the checker has answered every batch sent before, with the
  // CPU time it has used since the last flush.
  flush() {
    if (!this.validator) return Promise.resolve(0);
    const id = ++this.flushCount;
    return new Promise((res) => {
      this.flushes.set(id, res);
      this.validator.send({ type: 'flush', id });
    });
  }

  worker(index) {
    if (this.workers[index]) return this.workers[index];
    const w = new Worker(join(HERE, 'worker.mjs'));
    w.on('message', (msg) => {
      if (msg.type === 'pid') {
        if (msg.alive) this.pids.add(msg.pid); else this.pids.delete(msg.pid);
      } else if (msg.type === 'pv') {
        this.checker().send({ type: 'batch', gameNo: msg.gameNo, batch: msg.batch });
      } else if (msg.type === 'result') {
        w.onResult?.(msg.result);
      }
    });
    w.on('error', (err) => {
      console.error(`worker error: ${err.stack || err}`);
      this.killAll();
      process.exit(3);
    });
    this.workers[index] = w;
    return w;
  }

  // Plays the jobs, `concurrency` at a time; every result goes to onResult,
  // every checked pv to onPv. Resolves, once the pvs are checked too, with
  // the checker's CPU time in ms.
  async play(jobs, concurrency, onResult, onPv) {
    this.onPv = onPv;
    const n = Math.max(1, Math.min(concurrency, jobs.length));
    let next = 0;
    let done = 0;
    await new Promise((resolveAll) => {
      if (jobs.length === 0) resolveAll();
      for (let i = 0; i < n; i++) {
        const w = this.worker(i);
        w.onResult = (r) => {
          done++;
          onResult(r);
          if (next < jobs.length) w.postMessage({ type: 'game', job: jobs[next++] });
          else if (done === jobs.length) resolveAll();
        };
        w.postMessage({ type: 'game', job: jobs[next++] });
      }
    });
    return this.flush();
  }

  // Ends the engines (quit, then a kill), the workers and the checker.
  async close() {
    await Promise.all(this.workers.map((w) => new Promise((res) => {
      w.on('message', (m) => { if (m.type === 'bye') res(); });
      w.postMessage({ type: 'shutdown' });
    })));
    await Promise.all(this.workers.map((w) => w.terminate()));
    this.workers = [];
    if (this.validator) {
      const v = this.validator;
      await new Promise((res) => {
        v.once('exit', res);
        v.send({ type: 'end' });
      });
    }
    this.killAll();
  }

  killAll() {
    for (const pid of this.pids) {
      try { process.kill(pid, 'SIGKILL'); } catch { /* gone */ }
    }
    if (this.validator) this.validator.kill('SIGKILL');
  }
}
