// The engine's tunable weights as its build reads them: the table
// src/evaluation/genes.txt ("bits N", then "id default name" a gene). A
// -pbil= string has GENE_SIZE characters a gene, GENE_CHARS in all.
import { readFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';

export const GENE_TABLE = fileURLToPath(new URL('../../../src/evaluation/genes.txt', import.meta.url));

export function readGeneTable(text) {
  let size = null;
  const genes = [];
  for (const line of text.split('\n')) {
    const fields = line.trim().split(/\s+/);
    if (!line.trim() || line.startsWith('#')) continue;
    if (fields[0] === 'bits' && fields.length === 2 && /^\d+$/.test(fields[1])) size = Number(fields[1]);
    else if (fields.length >= 3 && /^\d+$/.test(fields[1])) genes.push({ id: fields[0], value: Number(fields[1]), name: fields.slice(2).join(' ') });
    else throw new Error(`${GENE_TABLE}: not a gene: '${line}'`);
  }
  if (size === null || !genes.length) throw new Error(`${GENE_TABLE}: no "bits N" line or no gene`);
  return { size, genes };
}

const table = readGeneTable(readFileSync(GENE_TABLE, 'utf8'));
export const GENE_SIZE = table.size;
export const GENES = table.genes;
export const GENE_CHARS = GENE_SIZE * GENES.length;
