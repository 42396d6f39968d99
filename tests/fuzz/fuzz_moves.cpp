// Move lists: any text played from the start position (or from a FEN on
// the first line) keeps the position whole: the key equals a recompute, the
// stack stays within bounds, and the game can be searched a little.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_support.h"

using namespace velkor;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::start_once();
    std::string text(reinterpret_cast<const char*>(data), size);
    if (text.find('\0') != std::string::npos || size >= FEN_TEXT_SIZE) return 0;
    const size_t newline = text.find('\n');
    if (newline != std::string::npos) {
        const std::string fen = text.substr(0, newline);
        text = text.substr(newline + 1);
        if (fen_error(fen.c_str()) != nullptr) return 0;
        set_fen(fen.c_str());
    } else {
        set_startpos();
    }
    apply_moves(text.data());
    if (board.ply + MAX_DEPTH > STATE_STACK_SIZE - 1) __builtin_trap();
    if (position_key() != board.states[board.ply].key) __builtin_trap();
    is_draw();
    update_checks();
    update_attacks();
    generate_moves(0, GENERATE_ALL);
    return 0;
}
