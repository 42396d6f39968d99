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

// Squares from which each piece type hits the king, read backwards from the
// king; the queen's are the bishop's and the rook's together.
void king_lines(side_t& side) {
    const int k = lowest_square(side.pieces[KING]);
    side.check_squares[PAWN] = side.is_white ? white_pawn_attacks[k] : black_pawn_attacks[k];
    side.check_squares[KNIGHT] = knight_attacks[k];
    side.check_squares[BISHOP] = bishop_attacks(board.occupied, k);
    side.check_squares[ROOK] = rook_attacks(board.occupied, k);
    side.check_squares[QUEEN] = side.check_squares[BISHOP] | side.check_squares[ROOK];
    side.check_squares[KING] = 0;
}

// The enemy men on the king's lines give check. In single check a move
// other than the king's must take the checker or stand between: the squares
// between are empty then, and there are none for a knight, a pawn or a
// neighbour.
void find_checkers(side_t& side) {
    const side_t& enemy = *side.opponent;
    const int k = lowest_square(side.pieces[KING]);
    const bitboard checkers = (side.check_squares[PAWN] & enemy.pieces[PAWN]) |
                              (side.check_squares[KNIGHT] & enemy.pieces[KNIGHT]) |
                              (side.check_squares[BISHOP] & (enemy.pieces[BISHOP] | enemy.pieces[QUEEN])) |
                              (side.check_squares[ROOK] & (enemy.pieces[ROOK] | enemy.pieces[QUEEN]));
    side.checkers = checkers;
    side.evasions = popcount(checkers) == 1 ? between_squares[k][lowest_square(checkers)] | checkers : ~bitboard(0);
}

// The men that stand alone between `side`'s king and an enemy slider aimed
// at it, of either colour: our pinned men and the enemy's discoverers.
bitboard lone_between(const side_t& side) {
    const side_t& enemy = *side.opponent;
    const int k = lowest_square(side.pieces[KING]);
    const bitboard aimed = ((enemy.pieces[ROOK] | enemy.pieces[QUEEN]) & rook_rays[k]) |
                           ((enemy.pieces[BISHOP] | enemy.pieces[QUEEN]) & bishop_rays[k]);
    bitboard lone = 0;
    for (bitboard b = aimed; b;) {
        const bitboard men = between_squares[k][pop_square(b)] & board.occupied;
        if (men && (men & (men - 1)) == 0) lone |= men;
    }
    return lone;
}

}  // namespace

void update_attacks() {
    side_attacks(white);
    side_attacks(black);
}

void update_pins() {
    const bitboard white_lone = lone_between(white), black_lone = lone_between(black);
    white.pinned = white.pieces[0] & white_lone;
    white.discoverers = white.pieces[0] & black_lone;
    black.pinned = black.pieces[0] & black_lone;
    black.discoverers = black.pieces[0] & white_lone;
}

void update_checkers(bool in_check) {
    side_t& side = *board.turn;
    if (in_check) {
        king_lines(side);
        find_checkers(side);
    } else {
        side.checkers = 0;
        side.evasions = ~bitboard(0);
    }
}

void update_check_lines(bool in_check) {
    king_lines(*board.turn->opponent);
    update_checkers(in_check);
}

void update_checks() {
    for (side_t* side : {&white, &black}) {
        king_lines(*side);
        find_checkers(*side);
    }
    update_pins();
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
