#include <cassert>

#include "engine/engine.h"

namespace velkor {

move_t move_lists[MAX_DEPTH][MAX_MOVES];

namespace {

constexpr bitboard RANK_2 = rank_mask(1);
constexpr bitboard RANK_7 = rank_mask(6);

// Three squares on one rank, file or diagonal.
inline bool on_line(int a, int b, int c) { return (line_bits[a] & line_bits[b] & line_bits[c]) != 0; }

// Everything one call needs, gathered once. Words are appended at `end`;
// loops copy it to a local cursor, since a store of a word may otherwise be
// taken to change the fields read next. A counting pass (perft's last level)
// only counts: the words it would build are never looked at.
enum : int { LIST_ALL, LIST_CAPTURES, COUNT_ALL };
template <int Kind>
inline constexpr bool Counting = Kind == COUNT_ALL;

template <int Kind>
struct gen_t {
    move_t* end;
    int count;
    const side_t* side;
    const side_t* enemy;
    int king;        // our king's square
    int enemy_king;  // theirs
    bitboard occupied;
    // The enemy's piece codes spelt out in bits: a square holds the code
    // (bit of plane 0) + 2 (bit of plane 1) + 4 (bit of plane 2), 0 if empty.
    // Only enemy men are ever captured.
    bitboard code_planes[3];

    move_t captured_on(int to) const {
        return move_t((code_planes[0] >> to) & 1) | move_t((code_planes[1] >> to) & 1) << 1 |
               move_t((code_planes[2] >> to) & 1) << 2;
    }

    void add(move_t word) {
        if constexpr (Counting<Kind>)
            ++count;
        else
            *end++ = word;
    }
};

// The place of a square among the squares of a set, counted from the lowest.
inline int rank_in(bitboard set, int square) { return popcount(set & (square_bit(square) - 1)); }

// Turns the targets of one piece into complete words: pins, captures, direct
// and discovered checks. A pinned piece keeps the targets on its line. In a
// full list the words are written plain first, by ascending target; captures
// and checks are few, and each then marks its own word, found by its place
// in the set. A capture list makes each word whole at once.
template <int Kind>
inline void build(gen_t<Kind>& g, int piece, int from, bitboard targets) {
    if (!targets) return;
    const bitboard from_bit = square_bit(from);
    if (g.side->pinned & from_bit)
        for (bitboard b = targets; b;) {
            const int to = pop_square(b);
            if (!on_line(from, g.king, to)) targets ^= square_bit(to);
        }
    if constexpr (Counting<Kind>) {
        g.count += popcount(targets);
        return;
    }
    if constexpr (Kind == LIST_CAPTURES) {
        // Every target holds an enemy man, and checks are common among
        // captures: each word is made whole in one pass.
        move_t* out = g.end;
        const move_t base = make_word(from, 0, piece);
        const bitboard checks = g.enemy->check_squares[piece];
        const bool discoverer = g.side->discoverers & from_bit;
        for (bitboard b = targets; b;) {
            const int to = pop_square(b);
            move_t word = base | move_t(to) | g.captured_on(to) << 17 | move_t((checks >> to) & 1) << 28;
            if (discoverer && !on_line(from, g.enemy_king, to)) word |= MOVE_DISCOVERED;
            *out++ = word;
        }
        g.end = out;
        return;
    }
    move_t* const first = g.end;
    move_t* out = first;
    const move_t base = make_word(from, 0, piece);
    for (bitboard b = targets; b;) *out++ = base | move_t(pop_square(b));
    g.end = out;
    for (bitboard b = targets & g.occupied; b;) {
        const int to = pop_square(b);
        first[rank_in(targets, to)] |= g.captured_on(to) << 17;
    }
    for (bitboard b = targets & g.enemy->check_squares[piece]; b;) first[rank_in(targets, pop_square(b))] |= MOVE_CHECK;
    if (g.side->discoverers & from_bit)
        for (move_t* word = first; word != out; ++word)
            if (!on_line(from, g.enemy_king, move_to(*word))) *word |= MOVE_DISCOVERED;
}

template <int Kind>
void castling_moves(gen_t<Kind>& g) {
    const bitboard c = board.states[board.ply].castling;
    const int k = g.king;
    if (!(c & square_bit(k))) return;
    const bitboard free = ~(g.occupied | g.enemy->attacks[0]);
    const bitboard enemy_king = square_bit(g.enemy_king);
    const bitboard without_king = g.occupied ^ square_bit(k);
    if ((c & square_bit(k + 3)) && (free & square_bit(k + 1)) && (free & square_bit(k + 2))) {
        move_t word = make_word(k, k + 2, KING);
        if (rook_attacks(without_king, k + 1) & enemy_king) word |= MOVE_CHECK;
        g.add(word);
    }
    if ((c & square_bit(k - 4)) && (free & square_bit(k - 1)) && (free & square_bit(k - 2)) &&
        !(g.occupied & square_bit(k - 3))) {
        move_t word = make_word(k, k - 2, KING);
        if (rook_attacks(without_king, k - 1) & enemy_king) word |= MOVE_CHECK;
        g.add(word);
    }
}

template <int Kind>
void promotions(gen_t<Kind>& g) {
    const side_t& side = *g.side;
    const bool white_side = side.is_white;
    const bitboard enemy_king = square_bit(g.enemy_king);
    for (bitboard pawns = side.pieces[PAWN] & (white_side ? RANK_7 : RANK_2); pawns;) {
        const int from = pop_square(pawns);
        bitboard targets = white_side ? (file_above[from] & ~g.occupied) | (white_pawn_attacks[from] & black.pieces[0])
                                      : (file_below[from] & ~g.occupied) | (black_pawn_attacks[from] & white.pieces[0]);
        targets &= side.evasions;
        const bool pinned = side.pinned & square_bit(from);
        const bool discoverer = side.discoverers & square_bit(from);
        const bitboard o = g.occupied ^ square_bit(from);
        while (targets) {
            const int to = pop_square(targets);
            if (pinned && !on_line(from, g.king, to)) continue;
            move_t word = make_word(from, to, PAWN);
            word |= g.captured_on(to) << 17;
            if (discoverer && !on_line(from, g.enemy_king, to)) word |= MOVE_DISCOVERED;
            const bitboard rook = rook_attacks(o, to), bishop = bishop_attacks(o, to);
            g.add(word | move_t(QUEEN) << 20 | ((rook | bishop) & enemy_king ? MOVE_CHECK : 0));
            g.add(word | move_t(ROOK) << 20 | (rook & enemy_king ? MOVE_CHECK : 0));
            g.add(word | move_t(BISHOP) << 20 | (bishop & enemy_king ? MOVE_CHECK : 0));
            g.add(word | move_t(KNIGHT) << 20 | (knight_attacks[to] & enemy_king ? MOVE_CHECK : 0));
        }
    }
}

// En passant lifts two pawns off their lines at once, so it is tried on the board.
template <int Kind>
void en_passant_captures(gen_t<Kind>& g) {
    const bitboard p = board.states[board.ply].en_passant;
    if (!p) return;
    const int to = lowest_square(p);
    bitboard candidates = g.side->pieces[PAWN] & (g.side->is_white ? black_pawn_attacks[to] : white_pawn_attacks[to]);
    while (candidates) {
        move_t word = make_word(pop_square(candidates), to, PAWN, PAWN);
        make_move(word);
        const bool illegal = is_king_attacked(board.turn->opponent);
        if (is_king_attacked(board.turn)) word |= MOVE_CHECK | MOVE_DISCOVERED;
        unmake_move(word);
        if (!illegal) g.add(word);
    }
}

// Only the pawns with a move onto the target are visited; they are found
// for all pawns at once, from the target back to the pawns.
template <int Kind>
void pawn_moves(gen_t<Kind>& g, bitboard target) {
    const side_t& side = *g.side;
    const bool white_side = side.is_white;
    const bitboard empty = ~g.occupied;
    const bitboard push_to = target & empty, capture_to = target & g.occupied;
    // The pawns that can capture onto a square stand where a pawn of the
    // other colour on it would attack.
    const bitboard one_back = pawn_backward(push_to, white_side);
    const bitboard movers = one_back | (pawn_backward(one_back & empty, white_side) & (white_side ? RANK_2 : RANK_7)) |
                            pawn_attack_set(capture_to, !white_side);
    for (bitboard pawns = side.pieces[PAWN] & ~(white_side ? RANK_7 : RANK_2) & movers; pawns;) {
        const int from = pop_square(pawns);
        const int one = white_side ? from + 8 : from - 8;
        bitboard set = 0;
        if (!(g.occupied & square_bit(one))) {
            set = square_bit(one);
            const int two = white_side ? one + 8 : one - 8;
            if (rank_of(one) == (white_side ? 2 : 5) && !(g.occupied & square_bit(two))) set |= square_bit(two);
        }
        set |= (white_side ? white_pawn_attacks[from] : black_pawn_attacks[from]) & g.occupied;
        build(g, PAWN, from, set & target);
    }
}

// Their attack sets on the present occupancy are those that update_attacks found.
template <int Kind>
void piece_moves(gen_t<Kind>& g, bitboard target) {
    const side_t& side = *g.side;
    for (int piece = KNIGHT; piece <= QUEEN; ++piece)
        for (bitboard b = side.pieces[piece]; b;) {
            const int from = pop_square(b);
            build(g, piece, from, piece_attacks[from] & target);
        }
}

// The king may not step onto an attacked square, nor back along a checking ray.
template <int Kind>
void king_moves(gen_t<Kind>& g, bitboard target) {
    const side_t& enemy = *g.enemy;
    bitboard danger = enemy.attacks[0];
    if (g.side->checkers) {
        const bitboard o = g.occupied ^ square_bit(g.king);
        for (bitboard b = g.side->checkers; b;) {
            const int s = pop_square(b);
            if ((enemy.pieces[ROOK] | enemy.pieces[QUEEN]) & square_bit(s)) danger |= rook_attacks(o, s);
            if ((enemy.pieces[BISHOP] | enemy.pieces[QUEEN]) & square_bit(s)) danger |= bishop_attacks(o, s);
        }
    }
    build(g, KING, g.king, king_attacks[g.king] & target & ~danger);
}

// The fixed order: castling, promotions, en passant, other pawn moves,
// pieces, king. In double check only the king moves.
template <int Kind>
int generate(move_t* list) {
    constexpr bool all = Kind != LIST_CAPTURES;
    gen_t<Kind> g;
    g.end = list;
    g.count = 0;
    g.side = board.turn;
    g.enemy = board.turn->opponent;
    g.king = lowest_square(g.side->pieces[KING]);
    g.enemy_king = lowest_square(g.enemy->pieces[KING]);
    g.occupied = board.occupied;
    const bitboard* enemy = g.enemy->pieces;
    g.code_planes[0] = enemy[PAWN] | enemy[BISHOP] | enemy[QUEEN];
    g.code_planes[1] = enemy[KNIGHT] | enemy[BISHOP] | enemy[KING];
    g.code_planes[2] = enemy[ROOK] | enemy[QUEEN] | enemy[KING];
    const bitboard target = all ? ~g.side->pieces[0] : g.enemy->pieces[0];

    if (all && !g.side->checkers) castling_moves(g);
    if (popcount(g.side->checkers) < 2) {
        promotions(g);
        en_passant_captures(g);
        pawn_moves(g, target & g.side->evasions);
        piece_moves(g, target & g.side->evasions);
    }
    king_moves(g, target);
    return Counting<Kind> ? g.count : int(g.end - list);
}

}  // namespace

int generate_moves(int ply, uint32_t mode) {
    assert(ply < MAX_DEPTH && "depth < MAX_DEPTH");
    return mode == GENERATE_ALL ? generate<LIST_ALL>(move_lists[ply]) : generate<LIST_CAPTURES>(move_lists[ply]);
}

int count_moves() { return generate<COUNT_ALL>(nullptr); }

bool has_legal_move(bool in_check) {
    const side_t& side = *board.turn;
    const int king = lowest_square(side.pieces[KING]);
    if (!in_check && (king_attacks[king] & ~side.pieces[0] & ~side.opponent->attacks[0])) return true;
    update_checkers(in_check);
    return count_moves() != 0;
}

}  // namespace velkor
