// The campaign page: asks the tuner's server for a campaign's figures while
// the tab is visible and the campaign runs, and draws them; the charts are
// plain SVG. The list of campaigns at "/", one campaign at "/c/FOLDER/PATH".
'use strict';

const SVG = 'http://www.w3.org/2000/svg';
const main = document.getElementById('main');
const statusLine = document.getElementById('status');

function el(tag, attrs = {}, ...children) {
  const node = tag.startsWith('svg:') ? document.createElementNS(SVG, tag.slice(4)) : document.createElement(tag);
  for (const [k, v] of Object.entries(attrs)) {
    if (v === null || v === undefined) continue;
    if (k === 'text') node.textContent = v;
    else if (k.startsWith('on')) node.addEventListener(k.slice(2), v);
    else node.setAttribute(k, v);
  }
  for (const c of children.flat()) if (c !== null && c !== undefined) node.append(c);
  return node;
}

const fixed = (x, n = 1) => (x === null || x === undefined ? '—' : Number(x).toFixed(n));
function signed(x, n = 1) {
  if (x === null || x === undefined) return '—';
  const text = Number(x).toFixed(n);
  return Number(text) === 0 ? (0).toFixed(n) : `${x > 0 ? '+' : ''}${text}`;
}
function clock(seconds) {
  if (seconds === null || seconds === undefined) return '—';
  const s = Math.max(0, Math.round(seconds));
  return `${Math.floor(s / 3600)}:${String(Math.floor(s / 60) % 60).padStart(2, '0')}:${String(s % 60).padStart(2, '0')}`;
}
const endedAt = (t) => (t ? new Date(t * 1000).toLocaleString() : '—');

// A row of labelled figures; each value carries data-figure=NAME for readers and tests.
function figures(pairs) {
  return el('dl', { class: 'figures' }, pairs.map(([label, name, value]) => el('div', {},
    el('dt', { text: label }), el('dd', { 'data-figure': name, text: String(value) }))));
}

function progress(done, total) {
  const share = total ? Math.min(1, done / total) : 0;
  return el('div', { class: 'bar', role: 'progressbar', 'aria-valuenow': done, 'aria-valuemax': total },
    el('span', { style: `width:${(100 * share).toFixed(1)}%` }));
}

function copyable(text, name) {
  const pre = el('pre', { class: 'block', 'data-figure': name, text });
  const button = el('button', { type: 'button', class: 'copy', text: 'Copy', onclick: async () => {
    try {
      await navigator.clipboard.writeText(text);
      button.textContent = 'Copied';
    } catch {
      getSelection().selectAllChildren(pre);
      button.textContent = 'Selected: Ctrl-C';
    }
    setTimeout(() => { button.textContent = 'Copy'; }, 1500);
  } });
  return el('div', { class: 'copyable' }, button, pre);
}

// A line chart: series of [x, y] points and horizontal lines, scaled to the box.
function chart({ series, lines = [], yMin, yMax, width = 320, height = 150, title, xLabel }) {
  const pad = { l: 34, r: 8, t: title ? 18 : 6, b: xLabel ? 26 : 16 };
  const xs = series.flatMap((s) => s.points.map((p) => p[0]));
  const x0 = Math.min(...xs, 0);
  const x1 = Math.max(...xs, x0 + 1);
  const ys = [...series.flatMap((s) => s.points.flatMap((p) => [p[1] - (p[2] ?? 0), p[1] + (p[2] ?? 0)])), ...lines.map((l) => l.y)];
  let lo = yMin ?? Math.min(...ys);
  let hi = yMax ?? Math.max(...ys);
  if (!(hi > lo)) { lo -= 1; hi += 1; }
  const X = (x) => pad.l + ((x - x0) / (x1 - x0)) * (width - pad.l - pad.r);
  const Y = (y) => height - pad.b - ((y - lo) / (hi - lo)) * (height - pad.t - pad.b);
  const g = el('svg:svg', { viewBox: `0 0 ${width} ${height}`, class: 'chart', role: 'img', 'aria-label': title ?? '' });
  if (title) g.append(el('svg:text', { x: pad.l, y: 12, class: 'title', text: title }));
  g.append(el('svg:line', { x1: pad.l, x2: width - pad.r, y1: height - pad.b, y2: height - pad.b, class: 'axis' }));
  for (const v of [lo, hi]) g.append(el('svg:text', { x: pad.l - 4, y: Y(v) + 4, class: 'tick', 'text-anchor': 'end', text: fixed(v, Math.abs(hi - lo) < 3 ? 2 : 0) }));
  g.append(el('svg:text', { x: width - pad.r, y: height - 4, class: 'tick', 'text-anchor': 'end', text: `${xLabel ? `${xLabel} ` : ''}${fixed(x1, 0)}` }));
  for (const l of lines) g.append(el('svg:line', { x1: pad.l, x2: width - pad.r, y1: Y(l.y), y2: Y(l.y), class: l.cls }));
  for (const s of series) {
    for (const p of s.points) {
      if (p[2]) g.append(el('svg:line', { x1: X(p[0]), x2: X(p[0]), y1: Y(p[1] - p[2]), y2: Y(p[1] + p[2]), class: `err ${s.cls}` }));
    }
    g.append(el('svg:polyline', { points: s.points.map((p) => `${X(p[0]).toFixed(1)},${Y(p[1]).toFixed(1)}`).join(' '), class: `line ${s.cls}` }));
  }
  return g;
}

function workersTable(rows) {
  return el('div', { class: 'scroll' }, el('table', { class: 'workers' },
    el('caption', { text: 'Workers' }),
    el('thead', {}, el('tr', {}, ['worker', 'tasks', 'games', 'failures', 'last result', 'at'].map((t) => el('th', { text: t })))),
    el('tbody', {}, rows.map((w) => el('tr', { 'data-worker': w.worker, class: w.failures ? 'failed' : null },
      el('td', { text: w.worker.replace(/^tcp:\/\//, '') }), el('td', { text: w.tasks }),
      el('td', { 'data-figure': 'worker-games', text: w.games }), el('td', { text: w.failures }),
      el('td', { text: w.last ?? '—' }), el('td', { text: endedAt(w.finished) }))))));
}

// A row a weight, a column for each of the named lists of values.
function weightsTable(genes, columns) {
  return el('div', { class: 'scroll' }, el('table', { class: 'weights' },
    el('thead', {}, el('tr', {}, el('th', { text: 'weight' }), columns.map(([title]) => el('th', { text: title })))),
    el('tbody', {}, genes.names.map((name, k) => el('tr', {}, el('th', { text: name }),
      columns.map(([title, values]) => el('td', { 'data-figure': `${title} ${name}`, text: values[k] })))))));
}

function failuresText(kinds) {
  const list = Object.entries(kinds ?? {});
  return list.length ? list.map(([k, n]) => `${k} ${n}`).join(', ') : 'none';
}

// What the cluster cost a part, beside its failures: workers lost, tasks
// begun again (and the play their lost attempts had done), the scheduler's
// absences; and a line while no worker serves, with the command that lends one.
function faultFigures(f) {
  if (!f) return [];
  const times = (n) => `${n} time${n === 1 ? '' : 's'}`;
  const away = f.away_since ? `away since ${new Date(f.away_since * 1000).toLocaleTimeString()}${f.absences > 1 ? ` (${times(f.absences)})` : ''}`
    : f.absences ? `${times(f.absences)}, ${clock(f.away)}` : 'never';
  return [['lost workers', 'lost-workers', f.lost_workers],
    ['reruns', 'reruns', f.reruns ? `${f.reruns} (${clock(f.lost_play)} lost)` : '0'],
    ['scheduler away', 'away', away]];
}

function idleNote(f) {
  if (!f?.idle_since) return null;
  return el('p', { class: 'error', 'data-figure': 'idle' }, `no worker since ${new Date(f.idle_since * 1000).toLocaleTimeString()}: lend one with `,
    el('code', { text: f.lend }));
}

const draw = {
  match(p) {
    const verdict = p.sprt ? p.sprt.verdict : null;
    return [
      figures([
        ['games', 'games', `${p.games}${p.total && p.total !== p.games ? ` of ${p.total}` : ''}`],
        ['W', 'wins', p.wins], ['D', 'draws', p.draws], ['L', 'losses', p.losses],
        ['Elo (95 %)', 'elo', p.elo ? `${signed(p.elo.elo, 1)} ± ${fixed(p.elo.elo_error, 1)}` : '—'],
        ['LOS', 'los', p.elo ? `${fixed(100 * p.elo.los, 1)} %` : '—'],
        ...(p.sprt ? [['LLR', 'llr', `${fixed(p.sprt.llr, 2)} (${fixed(p.sprt.lower, 2)}, ${fixed(p.sprt.upper, 2)})`],
          ['verdict', 'verdict', verdict]] : []),
        ['pentanomial', 'penta', p.penta.join(' ')],
        ['games a minute', 'rate', fixed(p.rate, 1)],
        ['time left', 'left', p.final ? 'ended' : clock(p.left)],
        ['failures', 'failures', failuresText(p.kinds)],
        ...faultFigures(p.faults),
        ['limit', 'limit', p.limit],
      ]),
      idleNote(p.faults),
      p.total ? progress(p.games, p.total) : null,
      copyable(p.block, 'block'),
      el('p', { class: 'genes' }, 'tested ', el('code', { text: p.genes }), el('br'), 'base ', el('code', { text: p.base })),
    ];
  },
  positions(p) {
    return [
      figures([['games', 'games', `${p.games} of ${p.total}`], ['tasks', 'tasks', `${p.tasks} of ${p.total_tasks}`],
        ['positions', 'positions', p.positions ?? '—'], ['games a minute', 'rate', fixed(p.rate, 1)],
        ['time left', 'left', p.final ? 'ended' : clock(p.left)], ['failures', 'failures', p.failures],
        ...faultFigures(p.faults), ['limit', 'limit', p.limit]]),
      idleNote(p.faults),
      progress(p.games, p.total),
    ];
  },
  labels(p) {
    return [
      figures([['file', 'file', p.file], ['positions labelled', 'positions', p.positions],
        ['chunks', 'chunks', p.total_chunks ? `${p.chunks} of ${p.total_chunks}` : '—'],
        ['positions a minute', 'rate', fixed(p.rate, 0)], ['time left', 'left', p.final ? 'ended' : clock(p.left)],
        ...faultFigures(p.faults)]),
      idleNote(p.faults),
      p.total_chunks ? progress(p.chunks, p.total_chunks) : null,
    ];
  },
  review(p) {
    return [
      figures([['file', 'file', p.file], ['games', 'games', `${p.games} of ${p.total}`], ['depth', 'depth', p.depth],
        ['White\'s accuracy', 'white', p.white === null ? '—' : `${fixed(p.white, 1)} %`],
        ['Black\'s accuracy', 'black', p.black === null ? '—' : `${fixed(p.black, 1)} %`],
        ['?! ? ??', 'marks', `${p.marks.inaccuracies} ${p.marks.mistakes} ${p.marks.blunders}`],
        ['games a minute', 'rate', fixed(p.rate, 1)], ['time left', 'left', p.final ? 'ended' : clock(p.left)],
        ['not reviewed', 'failures', p.failures], ...faultFigures(p.faults)]),
      idleNote(p.faults),
      progress(p.games, p.total),
    ];
  },
  fit(p) {
    return [figures([['file', 'file', p.file]]), el('p', { 'data-figure': 'losses', text: p.losses }),
      el('p', { class: 'genes' }, el('code', { text: p.genes }))];
  },
  pbil(p, genes) {
    const gens = p.bits.length;
    const cell = Math.max(2, Math.floor(600 / gens));
    const heat = el('svg:svg', { viewBox: `0 0 ${gens * cell + 120} ${p.bits[0].length * 3 + 4}`, class: 'heat', role: 'img', 'aria-label': 'probability of a one bit by generation' });
    genes.names.forEach((name, k) => heat.append(el('svg:text', { x: 0, y: (k + 0.5) * genes.size * 3 + 5, class: 'tick', text: name })));
    p.bits.forEach((vector, g) => vector.forEach((q, b) => heat.append(el('svg:rect', {
      x: 120 + g * cell, y: b * 3 + 2, width: cell, height: 3, fill: `hsl(${q >= 0.5 ? 0 : 220} 70% ${100 - 50 * Math.abs(q - 0.5) * 2}%)`,
    }))));
    const fitness = p.fitness.length ? el('div', { class: 'wide' }, chart({
      title: 'fitness by generation: best (blue) and mean (orange) ± s.e.', yMin: 0, yMax: 1, width: 480, height: 180, xLabel: 'generation',
      lines: [{ y: 0.5, cls: 'base' }],
      series: [{ cls: 's0', points: p.fitness.map((f, g) => [g + 1, f.best, f.best_error]) },
        { cls: 's1', points: p.fitness.map((f, g) => [g + 1, f.mean, f.mean_error]) }],
    })) : null;
    return [
      figures([['generation', 'generation', `${p.generation} of ${p.generations}`], ['games', 'games', p.games],
        ['entropy', 'entropy', fixed(p.entropy, 3)], ...faultFigures(p.faults), ['limit', 'limit', p.limit]]),
      idleNote(p.faults),
      progress(p.generation, p.generations),
      el('p', { class: 'genes' }, 'the vector\'s answer ', el('code', { 'data-figure': 'genes', text: p.genes })),
      weightsTable(genes, [['expected', p.expected.map((v) => fixed(v, 1))], ['default', genes.defaults]]),
      el('figure', {}, heat, el('figcaption', { text: 'bits by generation: red towards 1, blue towards 0' })),
      fitness,
    ];
  },
  spsa(p, genes, section) {
    const start = p.thetas[0];
    const steps = section.dataset.view === 'steps';
    const per = p.thetas.length > 1 ? Math.max(1, Math.round(p.games / (p.thetas.length - 1))) : 1;
    const grid = el('div', { class: 'grid' }, genes.names.map((name, k) => chart({
      title: name, xLabel: 'games', height: 120,
      yMin: steps ? null : genes.low, yMax: steps ? null : genes.high,
      lines: [{ y: steps ? 0 : start[k], cls: 'start' }, ...(steps ? [] : [{ y: genes.defaults[k], cls: 'base' }])],
      series: [{ cls: 's0', points: p.thetas.map((theta, b) => [b * per, steps ? (theta[k] - start[k]) / p.c[b] : theta[k]]) }],
    })));
    const toggle = el('button', { type: 'button', class: 'toggle', 'data-figure': 'view', text: steps ? 'show values' : 'show steps of c',
      onclick: () => { section.dataset.view = steps ? 'values' : 'steps'; section.replaceChildren(...sectionBody(section.part, genes, section)); } });
    const c = p.c[p.c.length - 1];
    return [
      figures([['batch', 'batch', `${p.batch} of ${p.batches}`], ['games', 'games', p.games], ['failures', 'failures', p.failures],
        ...faultFigures(p.faults), ['c now', 'c', fixed(c, 2)], ['limit', 'limit', p.limit]]),
      idleNote(p.faults),
      progress(p.batch, p.batches),
      el('p', { class: 'genes' }, 'θ now ', el('code', { 'data-figure': 'genes', text: p.genes })),
      weightsTable(genes, [['start', start.map((v) => fixed(v, 1))], ['θ', p.theta.map((v) => fixed(v, 1))],
        ['steps of c', p.theta.map((v, k) => signed((v - start[k]) / c, 1))], ['default', genes.defaults]]),
      el('div', { class: 'row' }, toggle, el('span', { class: 'note', text: steps ? 'θ − start in steps of c at each point' : 'θ by games; dotted: start, dashed: default' })),
      grid,
    ];
  },
};

function sectionBody(part, genes, section) {
  const head = el('h2', {}, el('span', { class: 'kind', text: part.kind }), part.path ? ` ${part.path} ` : ' ',
    el('span', { class: `pill ${part.error ? 'bad' : part.final ? 'done' : 'live'}`, 'data-figure': 'state', text: part.error ? 'unreadable' : part.final ? 'ended' : 'running' }));
  if (part.error) return [head, el('p', { class: 'error', 'data-figure': 'error', text: part.error })];
  return [head, ...(draw[part.kind]?.(part, genes, section) ?? []), part.workers?.length ? workersTable(part.workers) : null].filter(Boolean);
}

function renderCampaign(data) {
  const sections = data.sections.map((part) => {
    const key = `${part.path}|${part.kind}|${part.file ?? ''}`;
    const old = main.querySelector(`section[data-key="${CSS.escape(key)}"]`);
    const section = el('section', { 'data-key': key, 'data-kind': part.kind, 'data-path': part.path });
    section.dataset.view = old?.dataset.view ?? 'values';
    section.part = part;
    section.append(...sectionBody(part, data.genes, section));
    return section;
  });
  main.replaceChildren(el('h1', { text: data.name }), ...(sections.length ? sections : [el('p', { text: 'Nothing here is a campaign yet.' })]));
  document.title = `${data.name} · Velkor campaigns`;
}

function renderIndex(data) {
  main.replaceChildren(el('h1', { text: 'Campaigns' }), ...data.roots.map((root) => el('section', {},
    el('h2', {}, `${root.name} `, el('span', { class: 'note', text: root.folder })),
    !root.exists ? el('p', { class: 'note', text: 'not there yet' }) : root.campaigns.length === 0 ? el('p', { class: 'note', text: 'no campaigns yet' })
      : el('ul', { class: 'campaigns' }, root.campaigns.map((c) => el('li', {},
        el('a', { href: `/c/${root.name}/${c.path === '.' ? '' : c.path}`, text: c.path === '.' ? root.name : c.path }),
        ` ${c.kinds.join(', ')} `, el('span', { class: `pill ${c.final ? 'done' : 'live'}`, text: c.final ? 'ended' : 'running' })))))));
}

// Polling: only while the tab is visible, never once the campaign has ended.
const api = location.pathname.startsWith('/c/') ? `/api${location.pathname}` : '/api/campaigns';
let version = null;
let ended = false;
let timer = null;
let every = 10;

function say(text) {
  statusLine.textContent = text;
}

async function poll() {
  timer = null;
  if (ended || document.visibilityState !== 'visible') return;
  let data;
  try {
    const answer = await fetch(version ? `${api}?since=${encodeURIComponent(version)}` : api, { cache: 'no-store' });
    data = await answer.json();
    if (!answer.ok) {
      main.replaceChildren(el('p', { class: 'error', 'data-figure': 'error', text: `${answer.status}: ${data.error}` }));
      say('not found');
      return;
    }
  } catch (err) {
    say(`no answer from the server (${err.message}); trying again`);
    timer = setTimeout(poll, every * 1000);
    return;
  }
  every = data.poll ?? every;
  if (!data.unchanged) {
    version = data.version;
    if (data.roots) renderIndex(data); else renderCampaign(data);
  }
  if (data.roots) {
    say(`read ${new Date().toLocaleTimeString()}`);
    return;
  }
  ended = !!data.final;
  if (ended) say(`ended: final figures, read ${new Date().toLocaleTimeString()}`);
  else {
    say(`running: read ${new Date().toLocaleTimeString()}, again every ${every} s while this tab is visible`);
    timer = setTimeout(poll, every * 1000);
  }
}

document.addEventListener('visibilitychange', () => {
  if (document.visibilityState === 'visible') {
    if (!timer && !ended) poll();
  } else if (timer) {
    clearTimeout(timer);
    timer = null;
    if (!ended) say('paused while this tab is hidden');
  }
});
poll();
