// The UCI front end: start-up, the line reader and the command loop.
#pragma once

namespace velkor {

inline constexpr const char* ENGINE_NAME = "Velkor 0.3.0 x64 (popcnt)";
inline constexpr int INPUT_SIZE = 8192;

// The current command, rewritten by each read_line.
extern char input_line[INPUT_SIZE];

// Reads the next non-empty line into input_line with blanks and TABs folded.
// Returns false once the input has ended with no line left to hand out.
bool read_line();

// The debug command: board, static score and legal moves of the position.
void debug_command();

// The positions of the bench command (the evaluation benchmark times them too).
inline constexpr const char* BENCH_POSITIONS[4] = {
    "2r1k2r/pq1p1ppp/1pbPpn2/8/2P2B2/P2B1P2/1PQ3PP/R3K2R b KQk - 2 16",
    "1n1q1rk1/r3ppbp/p1p3p1/1p3b2/P1pP3B/1NP1PB2/5PPP/R2QR1K1 w - - 10 16",
    "r2q2k1/pb3pp1/1p3n1p/2bpr3/8/2NBP3/PPQB1PPP/2RR2K1 w - - 0 16",
    "r5k1/p2qp1bp/6p1/1pP3P1/2n1P3/1QP1B3/P3N1PP/R4K2 b - - 0 17",
};

// The bench command: four fixed searches to depth 12, their nodes and speed.
void bench_command();

// A go line: limits from its form, then the search.
void go_command();

// The limits of the go line in input_line, for the side to move.
void go_limits();

// Start-up: banner, weights, attack tables, hash table, start position.
// Returns false when the engine cannot run.
bool start_engine(int argc, char** argv);

// Reads and carries out commands until quit or the end of input.
void command_loop();

// Start-up and the command loop; returns the process's exit status.
int run_engine(int argc, char** argv);

}  // namespace velkor
