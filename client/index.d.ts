// Velkor: a UCI chess engine as WebAssembly, behind promises.

/** A position: a FEN (or none, for the start position) and moves in coordinates ("e2e4", "e7e8q"). */
export interface Position {
  fen?: string;
  moves?: string[];
}

/** How long a search runs: a depth, a time (ms), the clocks (ms), or until stopped. */
export interface Limits {
  depth?: number;
  movetime?: number;
  wtime?: number;
  btime?: number;
  winc?: number;
  binc?: number;
  movestogo?: number;
  infinite?: boolean;
}

/** A score from the side to move's point of view: centipawns, or a mate in moves (negative: it is mated). */
export type Score = ({ cp: number; mate?: never } | { mate: number; cp?: never }) & {
  bound?: 'lowerbound' | 'upperbound';
};

/** One report of a search (an "info" line with a depth). */
export interface Info {
  depth?: number;
  seldepth?: number;
  score?: Score;
  nodes?: number;
  nps?: number;
  time?: number;
  hashfull?: number;
  pv: string[];
}

export interface Played {
  /** The move in coordinates; null when the game is over in the position. */
  move: string | null;
  ponder?: string;
  info: Info;
}

export interface Analysis extends AsyncIterable<Info> {
  /** Ends the search; the iteration ends and `result` resolves. */
  stop(): void;
  result: Promise<Played>;
}

export interface Engine {
  /** The engine's `id name`. */
  readonly name: string;
  /** The last report of a search of the position (position, go). */
  analyse(position: Position, limits?: Limits): Promise<Info>;
  /** The engine's move in the position (position, go). */
  play(position: Position, limits?: Limits): Promise<Played>;
  /** A search reported as it goes; by default until stopped (go infinite). */
  analysis(position: Position, limits?: Limits): Analysis;
  /** Ends the running search, if any. */
  stop(): void;
  /** ucinewgame: clears the engine's table. */
  newGame(): Promise<void>;
  setOption(name: string, value: string | number | boolean): Promise<void>;
  /** Ends the engine and its worker. */
  quit(): Promise<void>;
}

export interface LoadOptions {
  /** The table's size in MB (setoption name Hash); the engine's default is 128. */
  hash?: number;
  /** The evaluation's weights as a string of bits (-pbil=). */
  pbil?: string;
  /** The most memory, in bytes, the engine may grow to. */
  maxMemory?: number;
}

/** Starts the engine in a worker (a Web Worker, or a worker thread under Node). */
export function loadEngine(options?: LoadOptions): Promise<Engine>;

/** Rejects what waits on an engine that has ended. */
export class EngineEnded extends Error {}

/** Rejects a search of a position the engine did not take (a bad FEN, an illegal move), with the engine's words. */
export class PositionRefused extends Error {}

/** An "info" line parsed. */
export function parseInfo(line: string): Partial<Info> & { currmove?: string; currmovenumber?: number; string?: string };
/** A "bestmove" line parsed. */
export function parseBestmove(line: string): { move: string | null; ponder?: string };
/** The "position" line of a position. */
export function positionLine(position: Position): string;
/** The "go" line of a limit. */
export function goLine(limits?: Limits): string;
