// The page's game review: the game in the move list searched by the page's
// engine through the one review (client/review.js), then an evaluation graph
// under the board, the marks in the move list, the better move of each
// marked move with its line, each side's accuracy and counts, and the
// annotated game in the PGN box.
import { Chess } from './vendor/chess.js/chess.js';
import { MARKS, REVIEW_DEPTH, ReviewCancelled, annotatedPgn, clampedCp, evalText, judge, searchGame, winPercent } from './client/review.js';

const $ = (id) => document.getElementById(id);
const SVG = 'http://www.w3.org/2000/svg';
const WIDTH = 600;
const HEIGHT = 90;

// The key of a game: its start and its moves; a review belongs to one.
const keyOf = (startFen, moves) => `${startFen}|${moves.map((m) => m.lan).join(' ')}`;

export class Review {
  // engine: the page's Engine; game(): { startFen, moves (chess.js's
  // verbose moves), ply, headers, weights }; goTo(ply); refresh() when a
  // review starts or ends (the page shows it); ended() when it has ended
  // (the page's own engine work carries on); say(text, kind).
  constructor({ engine, game, goTo, refresh, ended, say }) {
    Object.assign(this, { engine, game, goTo, refresh, ended, say });
    this.result = null; // { key, review, answers, pgn, depth }
    this.running = false;
    this.cancelled = false;
    $('review-depth').value = String(REVIEW_DEPTH);
    $('review-game').addEventListener('click', () => this.start());
    $('review-cancel').addEventListener('click', () => this.cancel());
    $('review-next').addEventListener('click', () => this.nextMistake());
    $('review-graph').addEventListener('click', (event) => this.graphClick(event));
  }

  // The review of the game shown, or null when it has none (or another's).
  current() {
    const { startFen, moves } = this.game();
    return this.result && this.result.key === keyOf(startFen, moves) ? this.result : null;
  }

  async start() {
    if (this.running) return;
    const text = $('review-depth').value.trim();
    if (!/^[1-9][0-9]?$/.test(text) || Number(text) > 30) {
      this.say('The review depth is a whole number of plies from 1 to 30.');
      return;
    }
    const { startFen, moves, headers, weights } = this.game();
    if (!moves.length) {
      this.say('There is no move to review: play or load a game first.');
      return;
    }
    const depth = Number(text);
    const table = $('hash').value; // the page's own table comes back after the review
    const game = { headers, startFen: startFen === new Chess().fen() ? null : startFen, moves: moves.map((m) => ({ san: m.san, uci: m.lan })) };
    this.running = true;
    this.cancelled = false;
    this.say('');
    this.showRunning(0, moves.length + 1, null);
    this.refresh();
    const started = performance.now();
    const onProgress = (done, total) => {
      const perPosition = (performance.now() - started) / done;
      this.showRunning(done, total, perPosition * (total - done));
    };
    try {
      const answers = await this.engine.exclusive((client) =>
        searchGame(client, game, { depth, onProgress, cancelled: () => this.cancelled }).finally(() =>
          client.post([`setoption name Hash value ${table}`]).catch(() => {})));
      if (!answers) throw new Error('the engine is busy or not running');
      const review = judge(game, answers);
      const engineName = this.engine.name || 'Velkor';
      const pgn = annotatedPgn(game, review, { engine: engineName, depth, weights });
      this.result = { key: keyOf(startFen, moves), review, answers, pgn, depth, seconds: (performance.now() - started) / 1000 };
      $('pgn').value = pgn;
      $('hash').value = table;
      this.say(`The game is reviewed at depth ${depth} in ${this.result.seconds.toFixed(1)} s.`, 'news');
    } catch (error) {
      if (!(error instanceof ReviewCancelled)) this.say(`The review stopped: ${error.message || error}.`);
      else this.say('The review was cancelled.', 'news');
    } finally {
      this.running = false;
      this.showRunning(null);
      this.refresh();
      this.ended();
    }
  }

  cancel() {
    if (!this.running) return;
    this.cancelled = true;
    this.engine.client?.stop();
  }

  showRunning(done, total, msLeft) {
    const running = done !== null;
    $('review-progress').hidden = !running;
    $('review-cancel').hidden = !running;
    $('review-game').disabled = running;
    if (!running) return;
    const left = msLeft === null ? '' : `, about ${Math.ceil(msLeft / 1000)} s left`;
    $('review-progress-text').textContent = `Reviewing: ${done} of ${total} positions${left}`;
    $('review-bar').value = done;
    $('review-bar').max = total;
  }

  // The mark of move i (0: the game's first), as text: '?!', '?', '??' or ''.
  symbol(i) {
    const mark = this.current()?.review.moves[i]?.mark;
    return mark ? MARKS[mark].symbol : '';
  }

  markClass(i) {
    return this.current()?.review.moves[i]?.mark || '';
  }

  // The move after the current one that has a mark, and the board goes there.
  nextMistake() {
    const result = this.current();
    if (!result) return;
    const { ply } = this.game();
    const marked = result.review.moves.findIndex((m, i) => i + 1 > ply && m.mark);
    const first = result.review.moves.findIndex((m) => m.mark);
    const target = marked >= 0 ? marked : first;
    if (target >= 0) this.goTo(target + 1);
    else this.say('No move of this game has a mark.', 'news');
  }

  graphClick(event) {
    const result = this.current();
    if (!result) return;
    const box = $('review-graph').getBoundingClientRect();
    const plies = result.review.scores.length - 1;
    this.goTo(Math.round(((event.clientX - box.left) / box.width) * plies));
  }

  // Shows the review of the game on the board, if it has one: the graph
  // with the current position marked, the accuracies, the move's judgement.
  show() {
    const result = this.current();
    $('review-result').hidden = !result;
    $('review-graph').toggleAttribute('hidden', !result); // an SVG element has no hidden property
    if (!result) return;
    const { ply, startFen } = this.game();
    this.drawGraph(result, ply);
    const { white, black } = result.review;
    for (const [side, figures] of [['white', white], ['black', black]]) {
      $(`review-${side}`).textContent = `${figures.accuracy ?? '–'} %`;
      $(`review-${side}-marks`).textContent = `${figures.inaccuracies} ?!, ${figures.mistakes} ?, ${figures.blunders} ??`;
    }
    const move = result.review.moves[ply - 1];
    const score = result.review.scores[ply];
    let text = ply === 0 ? 'The start position' : `${move.san}${MARKS[move.mark]?.symbol || ''}`;
    const value = evalText(score);
    text += `: ${value ? (/^\d/.test(value) && value !== '0.00' ? `+${value}` : value) : 'checkmate'}`;
    if (move?.mark) {
      const line = this.sanLine(startFen, ply - 1, move.line);
      text += `. ${MARKS[move.mark].word}.${line ? ` Better was ${line}` : ''}`;
    }
    $('review-move').textContent = text;
  }

  // A line of coordinates as numbered SAN from the position before move i.
  sanLine(startFen, i, line) {
    const board = new Chess(startFen);
    for (const move of this.game().moves.slice(0, i)) board.move(move.san);
    const words = [];
    for (const uci of line.slice(0, 8)) {
      const number = board.fen().split(' ')[5];
      let played;
      try {
        played = board.move({ from: uci.slice(0, 2), to: uci.slice(2, 4), promotion: uci[4] });
      } catch {
        break;
      }
      if (played.color === 'w') words.push(`${number}.`);
      else if (!words.length) words.push(`${number}…`);
      words.push(played.san);
    }
    return words.join(' ');
  }

  drawGraph(result, ply) {
    const svg = $('review-graph');
    const scores = result.review.scores;
    const x = (i) => (i / Math.max(1, scores.length - 1)) * WIDTH;
    const y = (score) => HEIGHT - (winPercent(clampedCp(score)) / 100) * HEIGHT;
    const points = scores.map((s, i) => `${x(i).toFixed(1)},${y(s).toFixed(1)}`);
    const shapes = [
      ['rect', { x: 0, y: 0, width: WIDTH, height: HEIGHT, class: 'graph-black' }],
      ['polygon', { points: `0,${HEIGHT} ${points.join(' ')} ${WIDTH},${HEIGHT}`, class: 'graph-white' }],
      ['line', { x1: 0, x2: WIDTH, y1: HEIGHT / 2, y2: HEIGHT / 2, class: 'graph-middle' }],
      ['polyline', { points: points.join(' '), class: 'graph-line' }],
    ];
    result.review.moves.forEach((move, i) => {
      if (move.mark) shapes.push(['circle', { cx: x(i + 1), cy: y(scores[i + 1]), r: 4, class: `graph-mark ${move.mark}` }]);
    });
    shapes.push(['line', { x1: x(ply), x2: x(ply), y1: 0, y2: HEIGHT, class: 'graph-current' }]);
    svg.replaceChildren(...shapes.map(([name, attributes]) => {
      const shape = document.createElementNS(SVG, name);
      for (const [key, value] of Object.entries(attributes)) shape.setAttribute(key, String(value));
      return shape;
    }));
    svg.setAttribute('aria-valuenow', String(ply));
    svg.setAttribute('aria-valuemax', String(scores.length - 1));
    svg.setAttribute('aria-valuetext', `Move ${ply} of ${scores.length - 1}: ${evalText(scores[ply]) || 'mate'}`);
  }
}
