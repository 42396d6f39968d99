// Helpers shared by the tests: loading positions, reading reference data,
// capturing what the engine prints, and running the engine as a process.
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
// form (check marks and captured pieces shown), moves separated by blanks.
std::string generated(unsigned mode = 0);

// The records of a data file under tests/data: one a line, fields separated
// by ';' and trimmed; blank lines and lines opening with '#' are skipped.
// Each knows its file and line, so that make repin can rewrite it.
struct record_t : std::vector<std::string> {
    std::string path;
    int line = 0;  // counted from 1
};
std::vector<record_t> records(const char* file);

// make repin (tools/repin.sh) runs the tests with VELKOR_REPIN naming a
// folder: then text is appended to the file `name` there, for the tool to
// write into the tests' data; otherwise nothing is written.
void report(const std::string& name, const std::string& text);

// Field `field` of record r pins `actual` (the field's whole text, e.g.
// "nodes 30078"): where they differ, a failure, and for make repin a line
// "file TAB line TAB field TAB actual" reported to "pins".
void pinned(const record_t& r, size_t field, const std::string& actual, const std::string& where);

// Plays random games from each position of varied.epd, always the same ones
// for a seed. At every position reached, with the derived fields fresh and
// the n legal moves in move_lists[0], visit(n) runs; then one of the moves is
// played. A game ends at mate, stalemate or a draw.
void random_games(int games, int plies, uint32_t seed, const std::function<void(int n)>& visit);

struct process_result {
    std::string out;
    std::string err;  // what the engine, or a tool it runs under, wrote to standard error
    int status = -1;  // exit status, or -1 if killed
    bool timed_out = false;
};

// Runs the engine binary (or the one VELKOR_TEST_ENGINE names), writes input
// to it and closes its input, and collects everything it prints until it
// exits or the time runs out. A
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
