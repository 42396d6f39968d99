// Names the site's build after its files and hands the list of them to the
// service worker: the line of sw.js that declares BUILD is replaced by the
// build's name (velkor- and the start of a SHA-256 of every file's path and
// bytes) and its files, so that any change to the site makes a new service
// worker, and the new one precaches everything anew.
// Usage: node web/precache.mjs SITE
import { createHash } from 'node:crypto';
import { readdirSync, readFileSync, writeFileSync } from 'node:fs';
import { join, relative, sep } from 'node:path';

const site = process.argv[2];
const worker = join(site, 'sw.js');
const DECLARATION = /^const BUILD = .*;$/m;

function files(dir) {
  return readdirSync(dir, { withFileTypes: true }).flatMap((entry) =>
    entry.isDirectory() ? files(join(dir, entry.name)) : [relative(site, join(dir, entry.name)).split(sep).join('/')],
  );
}

const list = files(site).filter((file) => file !== 'sw.js').sort();
const hash = createHash('sha256');
for (const file of list) hash.update(`${file}\0`).update(readFileSync(join(site, file)));
const source = readFileSync(worker, 'utf8');
if (!DECLARATION.test(source)) {
  console.error(`precache: ${worker} has no line "const BUILD = ...;" to fill in; is it the page's sw.js?`);
  process.exit(1);
}
const build = { name: `velkor-${hash.digest('hex').slice(0, 16)}`, files: ['./', ...list] };
writeFileSync(worker, source.replace(DECLARATION, () => `const BUILD = ${JSON.stringify(build)};`));
console.log(`precache: ${build.name}, ${list.length} files`);
