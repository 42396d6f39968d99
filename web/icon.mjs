// The app's icon, drawn at build time: a V on a corner of a chessboard, as
// an RGBA PNG of the given size (each pixel sampled 4x4 times for smooth
// edges). Node's zlib compresses it; nothing else is needed.
// Usage: node web/icon.mjs SIZE FILE.png
import { writeFileSync } from 'node:fs';
import { deflateSync } from 'node:zlib';

const LIGHT = [240, 217, 181], DARK = [181, 136, 99], INK = [29, 35, 48];
// The V, in units of the icon's side.
const V = [[0.2, 0.2], [0.37, 0.2], [0.5, 0.63], [0.63, 0.2], [0.8, 0.2], [0.585, 0.8], [0.415, 0.8]];
const RADIUS = 0.18; // of the rounded corners

function inside(polygon, x, y) {
  let odd = false;
  for (let i = 0, j = polygon.length - 1; i < polygon.length; j = i++) {
    const [xi, yi] = polygon[i], [xj, yj] = polygon[j];
    if (yi > y !== yj > y && x < ((xj - xi) * (y - yi)) / (yj - yi) + xi) odd = !odd;
  }
  return odd;
}

function inRoundedSquare(x, y) {
  const cx = Math.min(Math.max(x, RADIUS), 1 - RADIUS), cy = Math.min(Math.max(y, RADIUS), 1 - RADIUS);
  return (x - cx) ** 2 + (y - cy) ** 2 <= RADIUS * RADIUS;
}

// The colour at a point: the V, else the board's square (four squares a
// side), else nothing.
function sample(x, y) {
  if (!inRoundedSquare(x, y)) return null;
  if (inside(V, x, y)) return INK;
  return (Math.floor(x * 4) + Math.floor(y * 4)) % 2 ? DARK : LIGHT;
}

function draw(size) {
  const rows = Buffer.alloc(size * (size * 4 + 1));
  const n = 4;
  for (let py = 0; py < size; py++) {
    const row = py * (size * 4 + 1);
    rows[row] = 0; // no filter
    for (let px = 0; px < size; px++) {
      const sum = [0, 0, 0];
      let covered = 0;
      for (let sy = 0; sy < n; sy++) {
        for (let sx = 0; sx < n; sx++) {
          const colour = sample((px + (sx + 0.5) / n) / size, (py + (sy + 0.5) / n) / size);
          if (!colour) continue;
          covered++;
          for (let c = 0; c < 3; c++) sum[c] += colour[c];
        }
      }
      const at = row + 1 + px * 4;
      for (let c = 0; c < 3; c++) rows[at + c] = covered ? Math.round(sum[c] / covered) : 0;
      rows[at + 3] = Math.round((255 * covered) / (n * n));
    }
  }
  return rows;
}

const CRC_TABLE = Array.from({ length: 256 }, (_, k) => {
  let c = k;
  for (let i = 0; i < 8; i++) c = c & 1 ? 0xedb88320 ^ (c >>> 1) : c >>> 1;
  return c >>> 0;
});

function crc32(bytes) {
  let c = 0xffffffff;
  for (const byte of bytes) c = CRC_TABLE[(c ^ byte) & 0xff] ^ (c >>> 8);
  return (c ^ 0xffffffff) >>> 0;
}

function chunk(type, data) {
  const body = Buffer.concat([Buffer.from(type, 'latin1'), data]);
  const length = Buffer.alloc(4), crc = Buffer.alloc(4);
  length.writeUInt32BE(data.length);
  crc.writeUInt32BE(crc32(body));
  return Buffer.concat([length, body, crc]);
}

export function png(size) {
  const header = Buffer.alloc(13);
  header.writeUInt32BE(size, 0);
  header.writeUInt32BE(size, 4);
  header.set([8, 6, 0, 0, 0], 8); // 8 bits a channel, RGBA
  return Buffer.concat([
    Buffer.from([0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a]),
    chunk('IHDR', header),
    chunk('IDAT', deflateSync(draw(size), { level: 9 })),
    chunk('IEND', Buffer.alloc(0)),
  ]);
}

const [size, file] = process.argv.slice(2);
if (!/^\d+$/.test(size || '') || !file) {
  console.error('usage: node web/icon.mjs SIZE FILE.png');
  process.exit(2);
}
writeFileSync(file, png(Number(size)));
