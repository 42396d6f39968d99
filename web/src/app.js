// Velkor in a browser tab: play against the engine or analyse with it. The
// rules, SAN, FEN and PGN are chess.js's; the board is cm-chessboard; the
// engine is Velkor's WebAssembly build in a worker (engine.js).
import { Chess } from './vendor/chess.js/chess.js';
import { Chessboard, COLOR, INPUT_EVENT_TYPE, FEN } from './vendor/cm-chessboard/src/Chessboard.js';
import { Markers, MARKER_TYPE } from './vendor/cm-chessboard/src/extensions/markers/Markers.js';
import { PromotionDialog, PROMOTION_DIALOG_RESULT_TYPE } from './vendor/cm-chessboard/src/extensions/promotion-dialog/PromotionDialog.js';
import { Accessibility } from './vendor/cm-chessboard/src/extensions/accessibility/Accessibility.js';
import { Arrows, ARROW_TYPE } from './vendor/cm-chessboard/src/extensions/arrows/Arrows.js';
import { Engine } from './engine.js';
import { Review } from './review-panel.js';
import { headersOf } from './client/review.js';
import { followLink, linkFor, readLink } from './links.js';
import { threatFen } from './threat.js';
import { analysisGo, endNote } from './analysis.js';
import { registerApp } from './app-update.js';

const $ = (id) => document.getElementById(id);
const opened = performance.now();

// The game: a start position and the moves from it (chess.js's verbose
// moves); the board shows the position after `ply` of them.
const state = {
  startFen: FEN.start,
  moves: [],
  ply: 0,
  result: '', // set once the game has ended, on the board or on the clock
  clocks: null, // {w, b: ms left, inc: ms, turnStarted}
  search: 0, // the running search's number; a stale answer is dropped
  thinking: null, // 'play' or 'analyse' while the engine searches
  tuned: '',
  headers: null, // the tag pairs of a game loaded from PGN
  threat: false, // analysis searches the position with the other side to move
  analysed: null, // {key, depth, score, threat}: the latest analysis, which "go deeper" carries on
};

// The tab's memory for the engine: what the device can spare, and the
// table sizes offered under it. Phones and small tablets cannot give a tab
// 128 MB.
const device = (() => {
  const gigabytes = navigator.deviceMemory || 8;
  const phone = matchMedia('(pointer: coarse)').matches && Math.min(screen.width, screen.height) < 768;
  const capMb = phone || gigabytes <= 2 ? 32 : gigabytes <= 4 ? 64 : 256;
  return { capMb, maxMemory: (capMb + 32) << 20 };
})();

const engine = new Engine({ onFault: engineFault, onLine: tableMade });
const review = new Review({
  engine,
  game: () => ({ startFen: state.startFen, moves: state.moves, ply: state.ply, headers: state.headers || headersOf(gamePgn()),
    weights: engineArgs().length ? state.tuned : undefined }),
  goTo: (ply) => goTo(ply),
  refresh: () => {
    render();
    showThinking();
  },
  ended: () => afterMove(),
  say: (text, kind) => say(text, kind),
});

// The table the engine has made: the size asked for, or a smaller one that
// fitted the tab's memory.
function tableMade(line) {
  const made = /^info debug Creation of Transposition Table \((\d+) MB\) : success$/.exec(line);
  if (made && [...$('hash').options].some((o) => o.value === made[1])) $('hash').value = made[1];
}

const board = new Chessboard($('board'), {
  position: FEN.start,
  assetsUrl: './vendor/cm-chessboard/assets/',
  style: { pieces: { file: 'pieces/standard.svg' }, animationDuration: 150 },
  extensions: [
    { class: Markers },
    { class: PromotionDialog },
    { class: Accessibility, props: { movePieceForm: false, language: 'en' } },
    { class: Arrows },
  ],
});

// ---- the game ---------------------------------------------------------

function gameAt(ply) {
  const game = new Chess(state.startFen);
  for (const move of state.moves.slice(0, ply)) game.move(move.san);
  return game;
}

let view = gameAt(0); // the position on the board

function mode() {
  return document.querySelector('input[name="mode"]:checked').value;
}

function engineColour() {
  return $('engine-colour').value;
}

function atEnd() {
  return state.ply === state.moves.length;
}

// A line under the board: what went wrong (the default), or news.
function say(text, kind = 'error') {
  $('message').textContent = text;
  $('message').classList.toggle('news', kind === 'news');
}

// The result of a game over on the board, or ''.
function boardResult(game) {
  if (game.isCheckmate()) return game.turn() === 'w' ? '0-1' : '1-0';
  if (game.isDraw() || game.isStalemate()) return '1/2-1/2';
  return '';
}

function resultText(game) {
  if (game.isCheckmate()) return `Checkmate: ${game.turn() === 'w' ? 'Black' : 'White'} wins.`;
  if (game.isStalemate()) return 'Stalemate: a draw.';
  if (game.isThreefoldRepetition()) return 'Draw by threefold repetition.';
  if (game.isInsufficientMaterial()) return 'Draw: neither side can mate.';
  if (game.isDraw()) return 'Draw by the fifty-move rule.';
  return '';
}

// Plays a move (SAN, or {from, to, promotion}) on the position shown;
// false when it is not legal there. A move played before the last position
// starts a new line from there.
function play(move) {
  let played;
  try {
    played = view.move(move);
  } catch {
    return false;
  }
  state.moves = state.moves.slice(0, state.ply);
  state.moves.push(played);
  state.ply++;
  stopClockTurn(played.color);
  if (state.result) return true; // out of time with this move
  const over = resultText(view);
  if (over) finish(over, boardResult(view));
  render(true);
  afterMove();
  return true;
}

function finish(text, result) {
  state.result = result;
  $('result').textContent = text;
  if (state.clocks) state.clocks.turnStarted = null;
}

function afterMove() {
  if (mode() === 'analyse') {
    if (state.thinking === 'analyse') analyse();
    return;
  }
  if (!state.result && atEnd() && view.turn() === engineColour()) engineMove();
}

// ---- the board and the lists ------------------------------------------

function render(animated = false) {
  board.setPosition(view.fen(), animated);
  board.removeMarkers(MARKER_TYPE.square);
  const last = state.moves[state.ply - 1];
  if (last) {
    board.addMarker(MARKER_TYPE.square, last.from);
    board.addMarker(MARKER_TYPE.square, last.to);
  }
  $('fen').value = view.fen();
  $('nav-first').disabled = $('nav-back').disabled = state.ply === 0;
  $('nav-forward').disabled = $('nav-last').disabled = atEnd();
  renderMoves();
  enableInput();
  review.show();
  followLink(linkFor(state.startFen, state.moves.map((m) => m.san), state.ply));
  renderThreat();
}

function renderMoves() {
  const list = $('moves');
  list.replaceChildren();
  const firstBlack = new Chess(state.startFen).turn() === 'b';
  let item = null;
  state.moves.forEach((move, i) => {
    if (!item || move.color === 'w') {
      item = document.createElement('li');
      item.value = Math.floor((i + (firstBlack ? 1 : 0)) / 2) + moveNumber(state.startFen);
      list.append(item);
      if (move.color === 'b') item.append(document.createTextNode('… '));
    }
    const button = document.createElement('button');
    button.type = 'button';
    button.className = `move ${review.markClass(i)}` + (i + 1 === state.ply ? ' current' : '');
    button.textContent = move.san + review.symbol(i);
    button.setAttribute('aria-label', `Go to ${move.san}`);
    button.addEventListener('click', () => goTo(i + 1));
    item.append(button, document.createTextNode(' '));
  });
  const current = list.querySelector('.current');
  if (current) current.scrollIntoView({ block: 'nearest' });
}

function moveNumber(fen) {
  return Number(fen.split(' ')[5]) || 1;
}

function goTo(ply) {
  ply = Math.max(0, Math.min(state.moves.length, ply));
  if (ply === state.ply) return;
  state.ply = ply;
  view = gameAt(ply);
  render();
  if (mode() === 'analyse' && state.thinking === 'analyse') analyse();
}

// The human moves on the board in analysis, and in a game on their own
// turn at its last position.
function enableInput() {
  board.disableMoveInput();
  const game = mode() === 'play';
  if (game && (state.result || !atEnd() || view.turn() === engineColour())) return;
  board.enableMoveInput(boardInput, game ? (engineColour() === 'w' ? COLOR.black : COLOR.white) : undefined);
}

function boardInput(event) {
  if (event.type === INPUT_EVENT_TYPE.moveInputStarted) {
    return view.moves({ square: event.squareFrom }).length > 0;
  }
  if (event.type !== INPUT_EVENT_TYPE.validateMoveInput) return undefined;
  const candidates = view.moves({ square: event.squareFrom, verbose: true }).filter((m) => m.to === event.squareTo);
  if (!candidates.length) {
    say('That move is not legal here.');
    return false;
  }
  say('');
  if (candidates.some((m) => m.promotion)) {
    board.showPromotionDialog(event.squareTo, view.turn() === 'w' ? COLOR.white : COLOR.black, (result) => {
      if (result.type === PROMOTION_DIALOG_RESULT_TYPE.pieceSelected) {
        play({ from: event.squareFrom, to: event.squareTo, promotion: result.piece.charAt(1) });
      } else {
        render();
      }
    });
    return true;
  }
  setTimeout(() => play({ from: event.squareFrom, to: event.squareTo }));
  return true;
}

// A move typed in SAN (Nf3) or in coordinates (g1f3, e7e8q).
function typedMove(text) {
  const coordinates = /^([a-h][1-8])-?([a-h][1-8])([qrbn])?$/i.exec(text);
  if (coordinates) return { from: coordinates[1].toLowerCase(), to: coordinates[2].toLowerCase(), promotion: coordinates[3]?.toLowerCase() };
  return text;
}

// ---- the engine -----------------------------------------------------------

function searchLine() {
  return { fen: state.startFen, moves: state.moves.slice(0, state.ply).map((m) => m.lan) };
}

// The go line of the game's limit, or a message saying what is wrong.
function limit() {
  const kind = $('limit-kind').value;
  const text = $('limit-value').value.trim();
  if (kind === 'depth') {
    return /^[1-9][0-9]?$/.test(text) ? { go: `go depth ${text}` } : { error: 'The depth is a whole number of plies from 1 to 99.' };
  }
  if (kind === 'movetime') {
    const seconds = Number(text);
    return text && seconds > 0 && seconds <= 3600 ? { go: `go movetime ${Math.round(seconds * 1000)}` } : { error: 'The time a move is a number of seconds, such as 2 or 0.5.' };
  }
  const clock = /^(\d+(?:\.\d+)?)\+(\d+(?:\.\d+)?)$/.exec(text);
  if (!clock || Number(clock[1]) <= 0) return { error: 'The clock is minutes + seconds a move, such as 3+2.' };
  return { clock: { base: Number(clock[1]) * 60000, inc: Number(clock[2]) * 1000 } };
}

async function engineMove() {
  const wanted = limit();
  if (wanted.error) {
    say(wanted.error);
    return;
  }
  let go = wanted.go;
  if (state.clocks) {
    const c = state.clocks;
    go = `go wtime ${Math.max(1, Math.round(c.w))} btime ${Math.max(1, Math.round(c.b))} winc ${c.inc} binc ${c.inc}`;
  }
  const ply = state.ply;
  const move = await think('play', { ...searchLine(), go });
  if (move === null || mode() !== 'play' || state.ply !== ply || state.result) return;
  if (state.clocks && clockLeft(view.turn()) <= 0) return flagged(view.turn());
  if (move === '0000') return;
  play(typedMove(move));
}

// Analysis of the position shown, or of its threat, to the limit chosen;
// deeper carries on the latest one (the engine keeps its table between).
async function analyse(deeper = false) {
  const threat = state.threat ? threatFen(view.fen()) : null;
  const line = threat ? { fen: threat, moves: [] } : searchLine();
  const key = `${line.fen} ${line.moves.join(' ')}`;
  const last = deeper && state.analysed?.key === key ? state.analysed : null;
  const wanted = analysisGo($('analysis-limit').value, $('analysis-value').value.trim(), last);
  if (wanted.error) return say(wanted.error);
  clearInfo();
  state.analysed = { key, depth: last?.depth || 0, threat: threat !== null };
  const root = new Chess(line.fen);
  for (const move of line.moves) root.move(typedMove(move));
  const prefix = threat ? `Threat: ${root.turn() === 'w' ? 'White' : 'Black'} to move again. ` : '';
  $('info-note').textContent = prefix;
  const move = await think('analyse', { ...line, go: wanted.go, root: root.fen() });
  if (move === null) return;
  const note = endNote(move, root, { depth: state.analysed.depth, score: state.analysed.score });
  $('info-note').textContent = prefix + note.text;
  if (note.pv) {
    $('info-pv').textContent = pvSan(root.fen(), [move]);
    showArrow(move);
  }
  showThinking();
}

function showArrow(move) {
  board.removeArrows();
  if (move && move !== '0000') board.addArrow(state.analysed?.threat ? ARROW_TYPE.danger : ARROW_TYPE.info, move.slice(0, 2), move.slice(2, 4));
}

// The threat button: pressed in threat mode, off where it does not apply.
function renderThreat() {
  const possible = threatFen(view.fen()) !== null;
  $('threat').disabled = !possible;
  $('threat').setAttribute('aria-pressed', String(state.threat && possible));
}

function toggleThreat() {
  if (!threatFen(view.fen())) {
    say(view.isCheck() ? 'No threat mode here: the side to move is in check.' : 'No threat mode here: the game is over.');
    return;
  }
  state.threat = !state.threat;
  renderThreat();
  if (mode() !== 'analyse') {
    document.querySelector('input[name="mode"][value="analyse"]').checked = true;
    modeChanged();
  }
  analyse();
}

// One search; its info lines fill the panel. Resolves with the best move,
// or null when another search has replaced it.
async function think(kind, request) {
  if (!engine.running || review.running) return null;
  const number = ++state.search;
  const root = request.root || view.fen();
  state.thinking = kind;
  showThinking();
  const onInfo = (info) => number === state.search && showInfo(info, root);
  const move = await engine.search({ ...request, onInfo });
  if (number !== state.search) return null;
  state.thinking = null;
  showThinking();
  return move;
}

function stopThinking() {
  state.search++;
  state.thinking = null;
  engine.stop();
  showThinking();
}

function showThinking() {
  $('stop').disabled = !state.thinking;
  $('deeper').disabled = !engine.running || review.running || !!state.thinking || mode() !== 'analyse' || !state.analysed?.depth;
  $('analyse').disabled = !engine.running || review.running || state.thinking === 'analyse' || (mode() === 'play' && state.thinking === 'play');
}

// Scores as White sees them: centipawns, or mate in N (negative: Black mates).
function whiteScore(score, root) {
  const sign = root.split(' ')[1] === 'w' ? 1 : -1;
  return score.mate !== undefined ? { mate: sign * score.mate } : { cp: sign * score.cp };
}

function scoreText(score) {
  if (score.mate !== undefined) return `#${score.mate}`;
  return `${score.cp > 0 ? '+' : ''}${(score.cp / 100).toFixed(2)}`;
}

// White's share on the gauge, 0 to 1.
function share(score) {
  if (score.mate !== undefined) return score.mate > 0 ? 1 : 0;
  const x = 2 / (1 + Math.exp(-0.004 * score.cp)) - 1;
  return (Math.max(-1, Math.min(1, x)) + 1) / 2;
}

function showInfo(info, root) {
  if (info.depth !== undefined && info.score === undefined && info.currmove === undefined) return;
  // The closing "info score" of a search that has ended carries no depth.
  if (info.score && info.depth !== undefined) $('info-depth').textContent = `${info.depth}/${info.seldepth}`;
  if (info.nodes !== undefined) $('info-nodes').textContent = info.nodes.toLocaleString('en');
  // A speed needs a time to be measured over: none in the first millisecond.
  if (info.nps !== undefined && info.time > 0) $('info-speed').textContent = `${Math.round(info.nps / 1000).toLocaleString('en')} kN/s`;
  if (state.thinking === 'analyse' && info.score && info.depth !== undefined && !info.score.bound) {
    state.analysed.depth = info.depth;
    state.analysed.score = info.score;
    if (info.pv?.length) showArrow(info.pv[0]);
  }
  if (info.score && !info.score.bound) {
    const score = whiteScore(info.score, root);
    $('info-score').textContent = scoreText(score);
    const percent = Math.round(share(score) * 100);
    $('gauge-fill').style.height = `${percent}%`;
    $('gauge').setAttribute('aria-valuenow', String(percent));
    $('gauge').setAttribute('aria-valuetext', scoreText(score));
  }
  if (info.pv && !(info.score && info.score.bound)) $('info-pv').textContent = pvSan(root, info.pv);
}

function pvSan(fen, pv) {
  const game = new Chess(fen);
  const words = [];
  for (const move of pv) {
    const number = moveNumber(game.fen());
    try {
      const played = game.move(typedMove(move));
      if (played.color === 'w') words.push(`${number}.`);
      else if (!words.length) words.push(`${number}…`);
      words.push(played.san);
    } catch {
      break;
    }
  }
  return words.join(' ');
}

function clearInfo() {
  for (const id of ['info-depth', 'info-score', 'info-nodes', 'info-speed']) $(id).textContent = '–';
  $('info-pv').textContent = '';
  $('info-note').textContent = '';
  board.removeArrows();
  $('gauge-fill').style.height = '50%';
}

// ---- the clock --------------------------------------------------------------

function clockLeft(colour) {
  const c = state.clocks;
  const running = c.turnStarted !== null && view.turn() === colour && atEnd();
  return c[colour] - (running ? performance.now() - c.turnStarted : 0);
}

// The mover's clock stops: the time used comes off, the increment goes on.
function stopClockTurn(colour) {
  const c = state.clocks;
  if (!c || c.turnStarted === null) return;
  c[colour] -= performance.now() - c.turnStarted;
  if (c[colour] <= 0) return flagged(colour);
  c[colour] += c.inc;
  c.turnStarted = performance.now();
}

function flagged(colour) {
  state.clocks[colour] = 0;
  stopThinking();
  finish(`${colour === 'w' ? 'White' : 'Black'} has run out of time: ${colour === 'w' ? 'Black' : 'White'} wins.`, colour === 'w' ? '0-1' : '1-0');
  render();
}

function formatClock(ms) {
  const s = Math.max(0, Math.ceil(ms / 1000));
  return `${Math.floor(s / 60)}:${String(s % 60).padStart(2, '0')}`;
}

function tickClocks() {
  const c = state.clocks;
  $('clocks').hidden = !c;
  if (!c) return;
  for (const colour of ['w', 'b']) {
    const left = clockLeft(colour);
    const element = $(colour === 'w' ? 'clock-white' : 'clock-black');
    element.textContent = `${colour === 'w' ? 'White' : 'Black'} ${formatClock(left)}`;
    element.classList.toggle('running', c.turnStarted !== null && view.turn() === colour && !state.result);
  }
  if (c.turnStarted !== null && !state.result && view.turn() !== engineColour() && clockLeft(view.turn()) <= 0) flagged(view.turn());
}

// ---- commands -------------------------------------------------------------

function newGame() {
  stopThinking();
  const wanted = limit();
  if (wanted.error) {
    say(wanted.error);
    return;
  }
  setGame(FEN.start, []);
  state.clocks = wanted.clock ? { w: wanted.clock.base, b: wanted.clock.base, inc: wanted.clock.inc, turnStarted: performance.now() } : null;
  board.setOrientation(engineColour() === 'w' ? COLOR.black : COLOR.white);
  tickClocks();
  document.querySelector('input[name="mode"][value="play"]').checked = true;
  modeChanged(); // and Velkor moves first if it plays White
}

function setGame(startFen, moves) {
  state.headers = null;
  state.startFen = startFen;
  state.moves = moves;
  state.ply = moves.length;
  state.result = '';
  state.clocks = null;
  $('result').textContent = '';
  view = gameAt(state.ply);
  const over = resultText(view);
  if (over) finish(over, boardResult(view));
  clearInfo();
  render();
  tickClocks();
}

function loadFen() {
  const text = $('fen').value.trim();
  const check = validFen(text);
  if (check) {
    say(`That FEN cannot be loaded: ${check}`);
    $('fen').value = view.fen();
    return;
  }
  stopThinking();
  say('');
  setGame(new Chess(text).fen(), []);
  afterMove();
}

// Why a FEN cannot be played from, or ''.
function validFen(text) {
  if (!text) return 'it is empty.';
  try {
    new Chess(text);
  } catch (error) {
    return String(error.message || error).replace(/^Invalid FEN: /, '');
  }
  return '';
}

function loadPgn() {
  const text = $('pgn').value.trim();
  if (!text) {
    say('Paste a game in PGN first.');
    return;
  }
  const game = new Chess();
  try {
    game.loadPgn(text);
  } catch (error) {
    say(`That PGN cannot be read: ${String(error.message || error)}`);
    return;
  }
  const start = game.getHeaders().FEN || FEN.start;
  stopThinking();
  say('');
  setGame(start, game.history({ verbose: true }));
  state.headers = headersOf(text);
  afterMove();
}

// The game as PGN: its review's annotated game once it has one.
function pgnText() {
  return review.current()?.pgn || gamePgn();
}

function gamePgn() {
  const game = gameAt(state.moves.length);
  const human = mode() === 'play' ? 'Player' : '?';
  game.setHeader('Event', mode() === 'play' ? 'Game against Velkor' : 'Analysis with Velkor');
  game.setHeader('Date', new Date().toISOString().slice(0, 10).replaceAll('-', '.'));
  game.setHeader('White', mode() === 'play' && engineColour() === 'w' ? 'Velkor' : human);
  game.setHeader('Black', mode() === 'play' && engineColour() === 'b' ? 'Velkor' : human);
  game.setHeader('Result', state.result || '*');
  if (state.startFen !== FEN.start) {
    game.setHeader('SetUp', '1');
    game.setHeader('FEN', state.startFen);
  }
  return game.pgn();
}

function savePgn() {
  const link = document.createElement('a');
  link.href = URL.createObjectURL(new Blob([pgnText() + '\n'], { type: 'application/x-chess-pgn' }));
  link.download = 'velkor.pgn';
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 1000);
}

function modeChanged() {
  stopThinking();
  const play = mode() === 'play';
  $('play-settings').disabled = !play;
  if (!play) {
    state.clocks = null;
    tickClocks();
  }
  render();
  showThinking();
  afterMove();
}

function limitKindChanged() {
  const kind = $('limit-kind').value;
  const field = $('limit-value');
  const [value, label, hint] = {
    depth: ['6', 'Depth in plies', 'Plies, 1 to 99.'],
    movetime: ['2', 'Seconds a move', 'Seconds a move, such as 2 or 0.5.'],
    clock: ['3+2', 'Clock, minutes + seconds a move', 'Minutes + seconds a move, such as 3+2; applies to a new game.'],
  }[kind];
  field.value = value;
  field.setAttribute('aria-label', label);
  $('limit-hint').textContent = hint;
}

// ---- the engine's life --------------------------------------------------------

function engineArgs() {
  return $('weights').value === 'tuned' && state.tuned ? [`-pbil=${state.tuned}`] : [];
}

async function startEngine() {
  $('engine-fault').hidden = true;
  $('engine-status').textContent = 'Starting the engine…';
  stopThinking();
  try {
    const uciok = await engine.start({ args: engineArgs(), maxMemory: device.maxMemory, hash: Number($('hash').value) || 0 });
    fillHashSizes();
    const weights = ($('weights').value === 'tuned' ? 'tuned weights' : 'built-in weights') + (engine.ring ? ', shared memory' : '');
    const first = state.uciokAfterOpening === undefined;
    if (first) state.uciokAfterOpening = Math.round(performance.now() - opened);
    const since = first ? `, ${state.uciokAfterOpening} ms after the page opened` : '';
    $('engine-status').textContent = `Velkor is ready (${weights}, uciok ${Math.round(uciok)} ms after start${since}).`;
  } catch (error) {
    if (!engine.running) return; // the fault banner says what happened
    engineFault(String(error.message || error));
    return;
  }
  showThinking();
  afterMove();
}

// Table sizes: powers of two within the engine's Hash option and the tab's cap.
function fillHashSizes() {
  const select = $('hash');
  if (select.options.length || !engine.hashOption) return;
  const { min, max } = engine.hashOption;
  const preferred = Math.min(engine.hashOption.default, device.capMb);
  for (let mb = Math.max(min, 8); mb <= Math.min(max, device.capMb); mb *= 2) {
    select.add(new Option(`${mb} MB`, String(mb), false, mb === preferred));
  }
  engine.send(`setoption name Hash value ${select.value}`);
}

function engineFault(text) {
  state.thinking = null;
  $('engine-fault').hidden = false;
  $('fault-text').textContent = `The engine has stopped: ${text}.`;
  $('engine-status').textContent = 'The engine is not running.';
  showThinking();
}

// ---- wiring -----------------------------------------------------------------

function wire() {
  $('nav-first').addEventListener('click', () => goTo(0));
  $('nav-back').addEventListener('click', () => goTo(state.ply - 1));
  $('nav-forward').addEventListener('click', () => goTo(state.ply + 1));
  $('nav-last').addEventListener('click', () => goTo(state.moves.length));
  $('flip').addEventListener('click', () => board.setOrientation(board.getOrientation() === COLOR.white ? COLOR.black : COLOR.white));
  $('move-form').addEventListener('submit', (event) => {
    event.preventDefault();
    const text = $('move-input').value.trim();
    if (!text) return;
    if (mode() === 'play' && (state.result || !atEnd() || view.turn() === engineColour())) {
      say(state.result ? 'The game is over.' : atEnd() ? 'It is Velkor\'s move.' : 'Go to the last position to move.');
      return;
    }
    if (play(typedMove(text))) {
      $('move-input').value = '';
      say('');
    } else {
      say(`${text} is not a legal move here.`);
    }
  });
  for (const radio of document.querySelectorAll('input[name="mode"]')) radio.addEventListener('change', modeChanged);
  $('limit-kind').addEventListener('change', limitKindChanged);
  $('engine-colour').addEventListener('change', () => {
    board.setOrientation(engineColour() === 'w' ? COLOR.black : COLOR.white);
    render();
    afterMove();
  });
  $('new-game').addEventListener('click', newGame);
  $('analyse').addEventListener('click', () => {
    if (mode() !== 'analyse') {
      document.querySelector('input[name="mode"][value="analyse"]').checked = true;
      modeChanged();
    }
    analyse();
  });
  $('deeper').addEventListener('click', () => analyse(true));
  $('threat').addEventListener('click', toggleThreat);
  $('analysis-limit').addEventListener('change', () => {
    const kind = $('analysis-limit').value;
    $('analysis-value').hidden = kind === 'infinite';
    $('analysis-value').value = kind === 'depth' ? '16' : '5';
    $('analysis-value').setAttribute('aria-label', kind === 'depth' ? 'Depth in plies' : 'Seconds');
  });
  $('copy-link').addEventListener('click', async () => {
    try {
      await navigator.clipboard.writeText(location.href);
      say('The link to this position is copied.', 'news');
    } catch {
      say(`The link to this position: ${location.href}`, 'news');
    }
  });
  addEventListener('hashchange', openLink);
  $('stop').addEventListener('click', () => {
    if (state.thinking === 'analyse') stopThinking();
    else engine.stop(); // in a game: move now
  });
  $('weights').addEventListener('change', startEngine);
  $('hash').addEventListener('change', () => {
    stopThinking();
    engine.send(`setoption name Hash value ${$('hash').value}`);
    afterMove(); // a game goes on with the new table
  });
  $('restart').addEventListener('click', startEngine);
  $('load-fen').addEventListener('click', loadFen);
  $('fen').addEventListener('keydown', (event) => {
    if (event.key === 'Enter') loadFen();
  });
  $('load-pgn').addEventListener('click', loadPgn);
  $('copy-pgn').addEventListener('click', async () => {
    const text = pgnText();
    $('pgn').value = text;
    try {
      await navigator.clipboard.writeText(text);
      say('The game is copied as PGN.', 'news');
    } catch {
      say('The PGN is in the box below; copy it from there.', 'news');
    }
  });
  $('save-pgn').addEventListener('click', savePgn);
  document.addEventListener('keydown', (event) => {
    if (event.target.closest('input, textarea, select') || event.ctrlKey || event.metaKey || event.altKey) return;
    const keys = { ArrowLeft: () => goTo(state.ply - 1), ArrowRight: () => goTo(state.ply + 1), Home: () => goTo(0), End: () => goTo(state.moves.length), f: () => $('flip').click(), n: () => review.nextMistake(), x: toggleThreat };
    if (keys[event.key]) {
      event.preventDefault();
      keys[event.key]();
    }
  });
  setInterval(tickClocks, 200);
}

// A #fen= or #pgn= link: its position or game, through the FEN and PGN
// fields, so that a bad one gets their messages.
function openLink() {
  const link = readLink();
  if (!link || location.hash === linkFor(state.startFen, state.moves.map((m) => m.san), state.ply)) return;
  if (mode() !== 'analyse') {
    document.querySelector('input[name="mode"][value="analyse"]').checked = true;
    modeChanged();
  }
  if (link.fen !== undefined) {
    $('fen').value = link.fen;
    loadFen();
  } else {
    $('pgn').value = link.pgn;
    loadPgn();
    if (link.ply !== null) goTo(link.ply);
  }
}

async function main() {
  wire();
  registerApp($('update'), $('update-reload'));
  openLink();
  render();
  showThinking();
  try {
    const response = await fetch('./engine/tuned.txt');
    if (response.ok) state.tuned = (await response.text()).trim();
  } catch {
    // no tuned string: the defaults stay the only choice
  }
  $('weights').querySelector('option[value="tuned"]').disabled = !state.tuned;
  await startEngine();
}

main();
