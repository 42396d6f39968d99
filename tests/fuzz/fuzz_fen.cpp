// FEN loading: any text is either refused with a reason, or loads a
// position whose written FEN loads again to the same key, whose moves can
// be generated, played and taken back, and which can be evaluated.
#include <cstddef>
#include <cstdint>
#include <string>

#include "evaluation/evaluation.h"
#include "fuzz_support.h"

using namespace velkor;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::start_once();
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (text.find('\0') != std::string::npos || size >= FEN_TEXT_SIZE) return 0;
    if (fen_error(text.c_str()) != nullptr) return 0;
    set_fen(text.c_str());
    char fen[128];
    write_fen(fen);
    const uint64_t key = board.states[0].key;
    if (fen_error(fen) != nullptr) __builtin_trap();
    set_fen(fen);
    if (board.states[0].key != key || position_key() != key) __builtin_trap();
    update_checks();
    update_attacks();
    evaluate();
    const int n = generate_moves(0, GENERATE_ALL);
    if (count_moves() != n) __builtin_trap();
    for (int i = 0; i < n; ++i) {
        const move_t m = move_lists[0][i];
        make_move(m);
        if (is_king_attacked(board.turn->opponent) || position_key() != board.states[board.ply].key) __builtin_trap();
        perft_count(1, 1);
        unmake_move(m);
    }
    if (board.states[0].key != key) __builtin_trap();
    return 0;
}
