// Helpers shared by the tests: loading positions, capturing what the engine
// prints, and running the engine as a process.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace velkor::test {

// Loads a FEN that must be valid.
void load(const char* fen);

// What fn wrote to standard output.
std::string capture_stdout(const std::function<void()>& fn);

// The generated list of the current position in the engine's long display
// form (check marks and captured pieces shown), one string a move.
std::vector<std::string> generated(unsigned mode = 0);

// Positions that between them hold every move kind: castling, en passant,
// promotions, pins and checks.
inline const char* const varied_starts[] = {
    "rnbqkbnr/pppppppp/8/8/8/8/PPPPPPPP/RNBQKBNR w KQkq - 0 1",
    "r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1",
    "r3k2r/Pppp1ppp/1b3nbN/nP6/BBP1P3/q4N2/Pp1P2PP/R2Q1RK1 w kq - 0 1",
    "8/2p5/3p4/KP5r/1R3p1k/8/4P1P1/8 w - - 0 1",
    "n1n5/PPPk4/8/8/8/8/4Kppp/5N1N b - - 0 1",
};

// Plays `games` random games of at most `plies` moves from each of the
// varied starts, always the same ones for a seed. At every position reached,
// with the derived fields fresh and the n legal moves in move_lists[0],
// visit(n) runs; then one of the moves is played. A game ends at mate,
// stalemate or a draw.
void random_games(int games, int plies, uint32_t seed, const std::function<void(int n)>& visit);

struct process_result {
    std::string out;
    std::string err;       // what the engine, or a tool it runs under, wrote to standard error
    int status = -1;       // exit status, or -1 if killed
    bool timed_out = false;
    int milliseconds = 0;  // from the start to the exit
};

// Runs the engine binary, writes input to it and closes its input, and
// collects everything it prints until it exits or the time runs out. A
// PAUSE character in the input holds the writing for PAUSE_MS; the n-th
// AWAIT_BESTMOVE holds it until the engine has printed its n-th bestmove. A
// non-zero address_space_limit caps the process's virtual memory (bytes).
inline constexpr char PAUSE = '\x01';
inline constexpr char AWAIT_BESTMOVE = '\x02';
inline constexpr int PAUSE_MS = 300;
process_result run_engine_process(const std::string& input, const std::vector<std::string>& args = {},
                                  int timeout_seconds = 60, size_t address_space_limit = 0);

std::vector<std::string> split_lines(const std::string& text);

}  // namespace velkor::test
