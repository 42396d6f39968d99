#include "engine/engine.h"

namespace velkor {

bitboard piece_attacks[64];

namespace {

// Attacks of one side under the present occupancy; pawns go by two shifts of the whole set.
void side_attacks(side_t& side) {
    const bitboard occupied = board.occupied;
    side.attacks[PAWN] = pawn_attack_set(side.pieces[PAWN], side.is_white);
    bitboard a = 0;
    for (bitboard b = side.pieces[KNIGHT]; b;) {
        const int s = pop_square(b);
        a |= piece_attacks[s] = knight_attacks[s];
    }
    side.attacks[KNIGHT] = a;
    a = 0;
    for (bitboard b = side.pieces[BISHOP]; b;) {
        const int s = pop_square(b);
        a |= piece_attacks[s] = bishop_attacks(occupied, s);
    }
    side.attacks[BISHOP] = a;
    a = 0;
    for (bitboard b = side.pieces[ROOK]; b;) {
        const int s = pop_square(b);
        a |= piece_attacks[s] = rook_attacks(occupied, s);
    }
    side.attacks[ROOK] = a;
    a = 0;
    for (bitboard b = side.pieces[QUEEN]; b;) {
        const int s = pop_square(b);
        a |= piece_attacks[s] = queen_attacks(occupied, s);
    }
    side.attacks[QUEEN] = a;
    side.attacks[KING] = king_attacks[lowest_square(side.pieces[KING])];
    side.attacks[0] = side.attacks[PAWN] | side.attacks[KNIGHT] | side.attacks[BISHOP] | side.attacks[ROOK] |
                      side.attacks[QUEEN] | side.attacks[KING];
}

// Squares from which each piece type hits the king, read backwards from the king.
void king_lines(side_t& side) {
    const int k = lowest_square(side.pieces[KING]);
    side.check_squares[PAWN] = side.is_white ? white_pawn_attacks[k] : black_pawn_attacks[k];
    side.check_squares[KNIGHT] = knight_attacks[k];
    side.check_squares[BISHOP] = bishop_attacks(board.occupied, k);
    side.check_squares[ROOK] = rook_attacks(board.occupied, k);
    side.check_squares[QUEEN] = side.check_squares[BISHOP] | side.check_squares[ROOK];
    side.check_squares[KING] = 0;
}

// The squares between `side`'s king and the enemy sliders aimed at it, that
// is what both ends see of the line between them. A slider with nothing
// between adds the empty stretch, one with a single piece between adds that
// piece's square, one with more adds nothing.
bitboard between_set(const side_t& side) {
    const side_t& enemy = *side.opponent;
    const int k = lowest_square(side.pieces[KING]);
    const bitboard aimed = ((enemy.pieces[ROOK] | enemy.pieces[QUEEN]) & rook_rays[k]) |
                           ((enemy.pieces[BISHOP] | enemy.pieces[QUEEN]) & bishop_rays[k]);
    bitboard between = 0;
    for (bitboard b = aimed; b;) {
        const bitboard line = between_squares[k][pop_square(b)];
        const bitboard men = line & board.occupied;
        if (men == 0)
            between |= line;
        else if ((men & (men - 1)) == 0)
            between |= men;
    }
    return between;
}

void checks_and_pins(side_t& side, bitboard own_between, bitboard enemy_between) {
    const side_t& enemy = *side.opponent;
    // The queen's squares are the bishop's and the rook's together.
    const bitboard checkers = (side.check_squares[PAWN] & enemy.pieces[PAWN]) |
                              (side.check_squares[KNIGHT] & enemy.pieces[KNIGHT]) |
                              (side.check_squares[BISHOP] & (enemy.pieces[BISHOP] | enemy.pieces[QUEEN])) |
                              (side.check_squares[ROOK] & (enemy.pieces[ROOK] | enemy.pieces[QUEEN]));
    side.checkers = checkers;
    side.pinned = side.pieces[0] & own_between;
    side.discoverers = side.pieces[0] & enemy_between;
    side.evasions = popcount(checkers) == 1 ? (own_between & ~board.occupied) | checkers : ~bitboard(0);
}

}  // namespace

void update_attacks() {
    side_attacks(white);
    side_attacks(black);
}

void update_checks() {
    king_lines(white);
    king_lines(black);
    const bitboard white_between = between_set(white), black_between = between_set(black);
    checks_and_pins(white, white_between, black_between);
    checks_and_pins(black, black_between, white_between);
}

bool attacked_by(const side_t& by, bitboard occupied, int square, bool target_white) {
    if ((target_white ? white_pawn_attacks[square] : black_pawn_attacks[square]) & by.pieces[PAWN]) return true;
    if (knight_attacks[square] & by.pieces[KNIGHT]) return true;
    if (rook_attacks(occupied, square) & (by.pieces[ROOK] | by.pieces[QUEEN])) return true;
    return (bishop_attacks(occupied, square) & (by.pieces[BISHOP] | by.pieces[QUEEN])) != 0;
}

int is_king_attacked(const side_t* side) {
    return attacked_by(*side->opponent, board.occupied, lowest_square(side->pieces[KING]), side->is_white != 0);
}

}  // namespace velkor
