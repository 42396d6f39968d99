// An engine process under Node behind the client: its standard output a
// line at a time to the client, its end as the client's end.
import { spawn } from 'node:child_process';
import { UciClient } from './uci.js';

export function spawnEngine(path, args = []) {
  const child = spawn(path, args, { stdio: ['pipe', 'pipe', 'ignore'] });
  const client = new UciClient({ send: (line) => child.stdin.write(line + '\n') });
  let rest = '';
  child.stdout.setEncoding('latin1');
  child.stdout.on('data', (chunk) => {
    const lines = (rest + chunk).split('\n');
    rest = lines.pop();
    for (const line of lines) client.receive(line.replace(/\r$/, ''));
  });
  child.stdin.on('error', () => {}); // a closed pipe: reported by the exit
  child.on('error', (error) => client.ended(`${path} cannot run: ${error.message}`));
  child.on('exit', (code, signal) => client.ended(`${path} ended (${signal || `status ${code}`})`));
  const close = () => {
    child.stdin.end('quit\n');
    setTimeout(() => child.kill('SIGKILL'), 1000).unref();
  };
  return { client, close };
}
