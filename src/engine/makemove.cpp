#include "engine/engine.h"

namespace velkor {

// Step 1. Play a move: toggle the piece sets by masks, update material and
// the key incrementally, and push the new entry on the stack. Nothing is
// tested: the generator or the move-list reader has settled legality.
void make_move(move_t word) {
    state_t& s = board.states[board.ply];
    state_t& n = board.states[board.ply + 1];
    side_t& side = *board.turn;
    side_t& other = *side.opponent;
    const int from = move_from(word), to = move_to(word), p = move_moved(word);
    const bitboard to_bit = square_bit(to), mask = square_bit(from) | to_bit;
    uint64_t key = s.key ^ piece_key(side, p, from) ^ piece_key(side, p, to);
    int count = s.rule50 + 1;
    if (s.en_passant) key ^= en_passant_key(s.en_passant);

    s.from_to = mask;
    s.rook_from_to = 0;
    s.target = to_bit;
    side.pieces[0] ^= mask;
    side.pieces[p] ^= mask;
    if (p == PAWN) {
        if ((from ^ to) == 16) {
            n.en_passant = square_bit((from + to) / 2);
            key ^= en_passant_key(n.en_passant);
        }
        if (to_bit & s.en_passant) s.target = pawn_backward(to_bit, side.is_white);
        count = 0;
    } else if (p == KING && (to == from + 2 || to == from - 2)) {
        const int rook_from = to == from + 2 ? from + 3 : from - 4, rook_to = (from + to) / 2;
        const bitboard r = square_bit(rook_from) | square_bit(rook_to);
        side.pieces[0] ^= r;
        side.pieces[ROOK] ^= r;
        s.rook_from_to = r;
        key ^= piece_key(side, ROOK, rook_from) ^ piece_key(side, ROOK, rook_to);
    }

    if (const int captured = move_captured(word)) {
        other.material -= piece_value[captured];
        if (captured != PAWN) other.piece_material -= piece_value[captured];
        other.pieces[0] ^= s.target;
        other.pieces[captured] ^= s.target;
        key ^= piece_key(other, captured, lowest_square(s.target));
        count = 0;
    }

    if (const int promotion = move_promotion(word)) {
        side.pieces[PAWN] ^= s.target;
        side.pieces[promotion] ^= s.target;
        side.piece_material += piece_value[promotion];
        side.material += piece_value[promotion] - piece_value[PAWN];
        key ^= piece_key(side, PAWN, to) ^ piece_key(side, promotion, to);
    }

    board.occupied = black.pieces[0] | white.pieces[0];

    bitboard c = s.castling;
    if (mask & c) {
        key ^= castling_key(c);
        c &= ~mask;
        key ^= castling_key(c);
    }

    board.turn = &other;
    board.ply++;
    s.move = word;
    n.key = key ^ SIDE_KEY;
    n.rule50 = count;
    n.castling = c;
#ifndef NDEBUG
    check_position_invariants();
#endif
}

// Step 2. Take the last move back with the masks it left on the stack; key,
// castling, en passant and rule50 of the earlier entry are still intact.
void unmake_move(move_t word) {
    const int old = board.ply;
    board.ply = old - 1;
    board.turn = board.turn->opponent;
    side_t& side = *board.turn;
    side_t& other = *side.opponent;
    const state_t& s = board.states[board.ply];

    side.pieces[0] ^= s.from_to;
    side.pieces[move_moved(word)] ^= s.from_to;
    if (s.rook_from_to) {
        side.pieces[0] ^= s.rook_from_to;
        side.pieces[ROOK] ^= s.rook_from_to;
    }
    if (const int captured = move_captured(word)) {
        other.material += piece_value[captured];
        if (captured != PAWN) other.piece_material += piece_value[captured];
        other.pieces[0] ^= s.target;
        other.pieces[captured] ^= s.target;
    }
    if (const int promotion = move_promotion(word)) {
        side.pieces[PAWN] ^= s.target;
        side.pieces[promotion] ^= s.target;
        side.piece_material -= piece_value[promotion];
        side.material += piece_value[PAWN] - piece_value[promotion];
    }
    board.occupied = black.pieces[0] | white.pieces[0];
    board.states[old].en_passant = 0;
#ifndef NDEBUG
    check_position_invariants();
#endif
}

}  // namespace velkor
