// Helpers shared by the tests: loading positions, capturing what the engine
// prints, and running the engine as a process.
#pragma once

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

struct process_result {
    std::string out;
    int status = -1;       // exit status, or -1 if killed
    bool timed_out = false;
};

// Runs the engine binary, writes input to it and closes its input, and
// collects everything it prints until it exits or the time runs out. A
// non-zero address_space_limit caps the process's virtual memory (bytes).
process_result run_engine_process(const std::string& input, const std::vector<std::string>& args = {},
                                  int timeout_seconds = 60, size_t address_space_limit = 0);

std::vector<std::string> split_lines(const std::string& text);

}  // namespace velkor::test
