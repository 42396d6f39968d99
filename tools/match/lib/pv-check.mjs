// PV checker, run as a separate low-priority process so that replaying pvs
// with chess.js never takes CPU time from an engine that is on the clock.
// (Games at a fixed depth have no clock; their pvs are checked in the game.)
// Messages in:  { type: 'batch', gameNo, batch: { engine, isVelkor, ply, rootFen, posCmd, goCmd, lines } }
//               { type: 'flush', id }
//               { type: 'end' }
// Messages out: { type: 'checked', ... } (see checkBatch)
//               { type: 'flushed', id, cpuMs } (the CPU time since the last flush)
//               { type: 'ended' }

import { checkBatch } from './referee.mjs';

let cpu = process.cpuUsage();

process.on('message', (msg) => {
  if (msg.type === 'batch') {
    process.send(checkBatch(msg.batch.rootFen, msg.gameNo, msg.batch));
  } else if (msg.type === 'flush') {
    const used = process.cpuUsage(cpu);
    cpu = process.cpuUsage();
    process.send({ type: 'flushed', id: msg.id, cpuMs: (used.user + used.system) / 1000 });
  } else if (msg.type === 'end') {
    process.send({ type: 'ended' }, () => process.exit(0));
  }
});
process.on('disconnect', () => process.exit(0));
