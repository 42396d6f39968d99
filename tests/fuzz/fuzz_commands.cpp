// The command loop fed from memory. Every search is bounded: a line is
// always left waiting behind the input, so each search ends at its first
// limit check; perft depths above 3 and hash sizes above 16 MB are taken out.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz_support.h"

using namespace velkor;

namespace {

// Lines the fuzzer may not send: perfts deeper than 3, and any setoption
// line but one that asks for a table of 1 to 16 MB.
bool too_costly(const std::string& line) {
    int value = 0;
    const size_t perft = line.find("perft");
    if (perft != std::string::npos && scan_int(line.c_str() + perft + 5, &value) && value > 3) return true;
    if (line.find("setoption") == std::string::npos) return false;
    constexpr const char* HASH = "setoption name Hash value";
    return !(line.starts_with(HASH) && scan_int(line.c_str() + strlen(HASH), &value) && value >= 1 && value <= 16);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::start_once();
    std::string input, line;
    for (size_t i = 0; i <= size; ++i) {
        if (i < size && data[i] != '\n') {
            line += char(data[i]);
            continue;
        }
        if (!too_costly(line)) input += line + (i < size ? "\n" : "");
        line.clear();
    }
    input += "\nisready\n";  // waiting input: every search stops at its first check
    set_startpos();
    reset_search();
    tt_clear();
    input_from_memory(input.data(), input.size());
    command_loop();
    return 0;
}
