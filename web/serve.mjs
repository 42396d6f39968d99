// Serves the static site on 127.0.0.1, as a plain host serves it, or
// cross-origin isolated (the two headers that give a page shared memory, so
// that its engine runs the build without turns). make serve-web runs it;
// the page's tests and benchmark serve the site through it too.
// Usage: node web/serve.mjs SITE PORT [plain|isolated]
import { createServer } from 'node:http';
import { readFile } from 'node:fs/promises';
import { extname, join, normalize } from 'node:path';
import { pathToFileURL } from 'node:url';

const TYPES = {
  '.html': 'text/html', '.js': 'text/javascript', '.mjs': 'text/javascript', '.css': 'text/css',
  '.svg': 'image/svg+xml', '.wasm': 'application/wasm', '.txt': 'text/plain', '.png': 'image/png',
  '.webmanifest': 'application/manifest+json',
};
export const ISOLATION = { 'Cross-Origin-Opener-Policy': 'same-origin', 'Cross-Origin-Embedder-Policy': 'require-corp' };

// Serves the folder; resolves with {url, close}. close() ends the open
// connections too, as a server that has gone would.
export function serve(root, { isolated = false, port = 0 } = {}) {
  const server = createServer(async (request, response) => {
    const path = normalize(decodeURIComponent(new URL(request.url, 'http://x').pathname)).replace(/^(\.\.[/\\])+/, '');
    const file = path.endsWith('/') ? path + 'index.html' : path;
    const headers = isolated ? ISOLATION : {};
    try {
      const body = await readFile(join(root, file));
      response.writeHead(200, { 'Content-Type': TYPES[extname(file)] || 'application/octet-stream', ...headers });
      response.end(body);
    } catch {
      response.writeHead(404, { 'Content-Type': 'text/plain', ...headers });
      response.end('not found\n');
    }
  });
  return new Promise((resolve, reject) => {
    server.on('error', reject);
    server.listen(port, '127.0.0.1', () =>
      resolve({
        url: `http://127.0.0.1:${server.address().port}/`,
        close: () => {
          server.close();
          server.closeAllConnections();
        },
      }),
    );
  });
}

if (import.meta.url === pathToFileURL(process.argv[1]).href) {
  const [root, port = '8000', kind = 'isolated'] = process.argv.slice(2);
  if (!root || !['plain', 'isolated'].includes(kind) || !/^\d+$/.test(port)) {
    console.error('usage: node web/serve.mjs SITE PORT [plain|isolated]');
    process.exit(2);
  }
  try {
    const site = await serve(root, { isolated: kind === 'isolated', port: Number(port) });
    console.log(`Velkor in a browser: ${site.url} (${kind === 'isolated' ? 'cross-origin isolated: the engine without turns' : 'as a plain host serves it'}; Ctrl-C ends it)`);
  } catch (error) {
    console.error(`serve: cannot serve on port ${port}: ${error.code || error.message}; try PORT=...`);
    process.exit(1);
  }
}
