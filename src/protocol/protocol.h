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
