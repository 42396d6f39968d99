// PV checker, run as a separate low-priority process so that replaying pvs
// with chess.js never takes CPU time from an engine that is on the clock.
// Messages in:  { type: 'batch', gameNo, batch: { engine, isVelkor, ply, rootFen, posCmd, goCmd, lines } }
//               { type: 'flush', id }
//               { type: 'end' }
// Messages out: { type: 'checked', gameNo, engine, isVelkor, lines, bad: [...] }
//               { type: 'flushed', id, cpuMs } (the CPU time since the last flush)
//               { type: 'ended' }

import { checkPvs } from './referee.mjs';

let cpu = process.cpuUsage();

process.on('message', (msg) => {
  if (msg.type === 'batch') {
    const b = msg.batch;
    let bad;
    try {
      bad = checkPvs(b.rootFen, b.lines);
    } catch (err) {
      bad = [{ line: `(pv check error: ${err.message})`, index: -1, move: '' }];
    }
    process.send({
      type: 'checked',
      gameNo: msg.gameNo,
      engine: b.engine,
      isVelkor: b.isVelkor,
      lines: b.lines.length,
      bad: bad.map((x) => ({ ...x, ply: b.ply, posCmd: b.posCmd, goCmd: b.goCmd, rootFen: b.rootFen })),
    });
  } else if (msg.type === 'flush') {
    const used = process.cpuUsage(cpu);
    cpu = process.cpuUsage();
    process.send({ type: 'flushed', id: msg.id, cpuMs: (used.user + used.system) / 1000 });
  } else if (msg.type === 'end') {
    process.send({ type: 'ended' }, () => process.exit(0));
  }
});
process.on('disconnect', () => process.exit(0));
