#include <algorithm>
#include <cassert>
#include <cstdlib>

#include "engine/engine.h"
#include "evaluation/evaluation.h"
#include "search/search.h"

namespace velkor {

namespace {

constexpr int32_t futility_margin[3] = {0, 200, 500};

constexpr uint32_t sort_key(move_t word) { return word >> 15; }
inline uint32_t history_of(move_t word) { return history[move_moved(word) * 64 + move_to(word)]; }

// Whether candidate c ranks before b: order bits, checks, promotions and
// captures first; plain quiet moves by history; then the nearer centre;
// then the larger word.
inline bool better(move_t c, move_t b) {
    if (sort_key(c) != sort_key(b)) return sort_key(c) > sort_key(b);
    if (sort_key(c) == 0) {
        const int32_t d = int32_t(history_of(c) - history_of(b));
        if (d != 0) return d > 0;
    }
    const int cw = centre_weight[move_to(c)] - centre_weight[move_to(b)];
    if (cw != 0) return cw > 0;
    return int32_t(c - b) > 0;
}

// The same order as one number per word, larger first: a word with a sort
// key above every plain quiet move, plain quiet moves by history, then the
// nearer centre, then the low 15 bits of the word (all higher bits are equal
// by then). It agrees with `better` while the histories compared are below
// 2^31; past that their signed difference is no order, and the caller falls
// back on the tests themselves.
inline uint64_t order_key(move_t word) {
    const uint64_t primary = sort_key(word) ? (uint64_t(1) << 32 | sort_key(word)) : history_of(word);
    return primary << 18 | uint64_t(centre_weight[move_to(word)]) << 15 | (word & 0x7FFF);
}
constexpr uint64_t KEY_HISTORY_TOP = uint64_t(1) << (31 + 18);  // bit 31 of a history in order_key

// The keys of the words of a list below the root, kept beside it. Those of
// the plain quiet moves hold while no history counter has changed since
// they were made.
uint64_t order_keys[MAX_DEPTH][MAX_MOVES];
uint64_t history_changes = 0;

// The order bit of a word that is one of the two killers.
inline move_t killer_bits(move_t word, move_t killer_1, move_t killer_2) {
    return word == killer_1 ? MOVE_KILLER_1 : word == killer_2 ? MOVE_KILLER_2 : 0;
}

// Moves a node below the root through its list, best first. The words
// with a sort key rank above every plain quiet move whatever the history,
// so they are gathered in front at the first selection, and a selection
// scans only them while any is left.
struct selector_t {
    move_t* list;
    uint64_t* keys;
    int count;
    move_t killer_1, killer_2;        // marked on their words as they are gathered
    int keyed_end = -1;               // the words with a sort key are those before it; -1 before the gathering
    uint64_t made_at = ~uint64_t(0);  // history_changes when the keys of the plain quiet words were made
    bool beyond_keys = false;         // a history of 2^31 or more among them: order by the tests

    // Swaps the best word from `first` on to `first`. The keys of the words
    // with a sort key never change; those of the plain quiet words follow
    // the history, and are made only once the search gets to them.
    void select(int first) {
        if (keyed_end < 0) {
            int front = first;
            for (int j = first; j < count; ++j) {
                // A word with a sort key trades places with the first plain
                // one, by conditional moves: whether it has one is a guess.
                const move_t w = list[j] | killer_bits(list[j], killer_1, killer_2), f = list[front];
                const bool keyed = sort_key(w) != 0;
                list[j] = keyed ? f : w;
                list[front] = keyed ? w : f;
                front += keyed;
            }
            keyed_end = front;
            for (int j = first; j < front; ++j) keys[j] = order_key(list[j]);
        }
        if (first >= keyed_end && made_at != history_changes) {
            uint64_t seen = 0;
            for (int j = first; j < count; ++j) seen |= keys[j] = order_key(list[j]);
            beyond_keys = (seen & KEY_HISTORY_TOP) != 0;
            made_at = history_changes;
        }
        int top = first;
        if (first >= keyed_end && beyond_keys) {
            for (int j = first + 1; j < count; ++j)
                if (better(list[j], list[top])) top = j;
        } else {
            // The best key so far stays in a register, and both updates are
            // conditional moves: the branch of `better` would be a guess.
            const int end = keyed_end > first ? keyed_end : count;
            uint64_t best = keys[first];
            for (int j = first + 1; j < end; ++j) {
                const uint64_t k = keys[j];
                top = k > best ? j : top;
                best = k > best ? k : best;
            }
        }
        std::swap(list[first], list[top]);
        std::swap(keys[first], keys[top]);
    }
};

// At the root: the hash move, then the moves that took the most nodes last time.
inline bool better_at_root(move_t c, move_t b) {
    if ((c ^ b) & MOVE_HASH) return c & MOVE_HASH;
    const uint64_t nc = root_nodes[c & 0xFFF], nb = root_nodes[b & 0xFFF];
    if (nc != nb) return nc > nb;
    return int32_t(c - b) > 0;
}

// The null move is played on the stack alone: no piece moves.
void make_null_move() {
    state_t& s = board.states[board.ply];
    state_t& n = board.states[board.ply + 1];
    board.turn = board.turn->opponent;
    uint64_t key = s.key ^ SIDE_KEY;
    if (s.en_passant) key ^= en_passant_key(s.en_passant);
    s.move = 0;
    ++board.ply;
    n.key = key;
    n.en_passant = 0;
    n.castling = s.castling;
    n.rule50 = s.rule50 + 1;
}

void unmake_null_move() {
    --board.ply;
    board.turn = board.turn->opponent;
}

}  // namespace

int32_t alpha_beta(int ply, int depth_limit, int32_t alpha, int32_t beta, int check_flags, int null_allowed) {
    // Step 1. The end of the depth hands over to quiescence, which counts the leaf.
    if (ply >= depth_limit) return quiesce(ply, alpha, beta, check_flags);
    ++search_info.nodes;
    if (ply > search_info.seldepth) search_info.seldepth = ply;
    if ((search_info.nodes & LIMIT_CHECK_MASK) == LIMIT_CHECK_MASK) check_limits();
    if (search_info.stop) return 0;
    if (is_draw()) return 0;
    // The generator's check marks tell exactly whether the mover gave check.
    assert((check_flags != 0) == (is_king_attacked(board.turn) != 0));

    // Step 2. The table answers for this iteration's own results. Its bucket
    // is nearly always far away in memory, and most nodes never need it:
    // its filters tell when it holds nothing for the key, and a store waits
    // in the table's queue. So a node fetches its filters first, and its
    // bucket only once it knows that it goes on and that the bucket may hold
    // its key. Both are read after the work that does not depend on them,
    // the attack maps, the moves and the static score of a shallow node. No
    // early return can observe that order: the attack maps are stale
    // outside a node, the evaluation changes nothing, and below the root
    // this ply's list is read by nobody else. The root keeps its list as the
    // last iteration left it until it has passed the table.
    const int depth = depth_limit - ply;
    const bool is_pv = beta - alpha > 1;
    const uint64_t key = board.states[board.ply].key;
    const side_t& turn = *board.turn;
    const side_t& opponent = *turn.opponent;
    const bool null_ok = !is_pv && check_flags == 0 && null_allowed != 0 && turn.piece_material != 0 &&
                         opponent.piece_material != 0 && std::abs(alpha) <= MATE_BOUND && std::abs(beta) <= MATE_BOUND;
    const bool may_cut = null_ok && depth <= 2;
    tt_prefetch_filter(key);
    // A shallow node whose static score reaches beta ends unless it has no
    // move at all: it needs no list, only to know that one move exists.
    int count = 0;
    int32_t static_score = 0;
    bool static_cut = false, any_move = false;
    const auto prepare = [&] {
        update_pins();
        update_attacks();
        if (may_cut) {
            static_score = evaluate() - 25 * depth * popcount(turn.pieces[0] & opponent.attacks[0]);
            static_cut = static_score >= beta;
        }
        if (static_cut) {
            any_move = has_legal_move(false);  // null_ok: not in check
        } else {
            update_check_lines(check_flags != 0);
            if (tt_maybe_stored(key)) tt_prefetch(key);
            count = generate_moves(ply, GENERATE_ALL);
            any_move = count != 0;
        }
    };
    if (ply > 0) prepare();
    const int32_t hit = tt_probe(key, depth, alpha, beta);
    if (hit != TT_MISS && (!is_pv || (alpha < hit && hit < beta))) return hit;

    // Step 3. Generate before any pruning, so that mate and stalemate are found first.
    if (ply == 0) prepare();
    if (!any_move) return check_flags ? ply - MATE : 0;

    // Step 4. Null move, or at depth 1 and 2 its static substitute: the
    // evaluation less 25 for each own man attacked, for each ply of depth.
    bool shallow = false, may_reduce = false, no_upper_store = false;
    if (null_ok) {
        if (depth <= 2) {
            if (static_cut) return static_score;
            shallow = no_upper_store = true;
        } else {
            const int reduction = ((depth + 1) >> 2) + 2;
            make_null_move();
            const int32_t score = -alpha_beta(ply + 1, depth_limit - reduction, -beta, 1 - beta, 0, 0);
            unmake_null_move();
            if (score >= beta) return score;
            may_reduce = no_upper_store = true;
        }
    }

    // Step 5. The table's move, found by a shallower search in a PV node without one.
    move_t hash_move = tt_best_move(key);
    bool fresh_list = true;  // as the generator left it, with no order bits yet
    if (hash_move == 0 && is_pv && depth > 2) {
        alpha_beta(ply, depth_limit - 2, alpha, beta, check_flags, null_allowed);
        hash_move = tt_best_move(key);
        fresh_list = false;
    }

    // Step 6. Order bits on the list: hash move, then the two killers. (A
    // word marked as the hash move is no killer any more.) Below the root
    // the selector marks the killers as it makes its keys, before any word
    // but the hash move is selected.
    move_t* list = move_lists[ply];
    const move_t killer_1 = killers[ply][0], killer_2 = killers[ply][1];
    int hash_index = -1;
    if (hash_move != 0)
        for (int i = 0; i < count; ++i)
            if (list[i] == hash_move) {
                list[i] |= MOVE_HASH;
                hash_index = i;
                break;
            }
    if (ply == 0)
        for (int i = 0; i < count; ++i) list[i] |= killer_bits(list[i], killer_1, killer_2);

    const bool futile = shallow && alpha >= material_balance() + futility_margin[depth];
    uint64_t nodes_before = search_info.nodes;
    move_t best_move = 0;
    int quiet_count = 0, tactical_count = 0;

    // Step 7. The moves, best first by selection.
    selector_t selector{list, order_keys[ply], count, killer_1, killer_2};
    for (int i = 0; i < count; ++i) {
        if (ply == 0) {
            int top = i;
            for (int j = i + 1; j < count; ++j)
                if (better_at_root(list[j], list[top])) top = j;
            std::swap(list[i], list[top]);
        } else if (i == 0 && fresh_list && hash_index >= 0) {
            // The only word with the hash bit ranks first of all: no scan.
            std::swap(list[0], list[hash_index]);
        } else {
            selector.select(i);
        }
        const move_t word = list[i], played = word & MOVE_STRIP;
        if (ply == 0) {
            search_info.currmove = word;
            search_info.currmovenumber = i + 1;
        }
        if (sort_key(word) == 0)
            ++quiet_count;
        else if (move_captured(word) || move_promotion(word))
            ++tactical_count;
        // Late plain quiet moves of a shallow node are dropped, this one and all behind it.
        if (shallow && i > 0 && quiet_count > 0 && (futile || depth * 16 < i)) break;
        const int reduction = may_reduce && quiet_count > 0 && tactical_count > 0 ? 1 : 0;

        make_move(played);
        const int child_flags = int((word >> 28) & 3);
        int32_t score;
        if (i == 0) {
            const int extension = count == 1 && depth_limit < MAX_DEPTH - 1 ? 1 : 0;
            score = -alpha_beta(ply + 1, depth_limit + extension, -beta, -alpha, child_flags, 1);
        } else {
            score = -alpha_beta(ply + 1, depth_limit - reduction, -alpha - 1, -alpha, child_flags, 1);
            if (score > alpha && is_pv) score = -alpha_beta(ply + 1, depth_limit, -beta, -alpha, child_flags, 1);
        }
        unmake_move(played);
        if (search_info.stop) return 0;

        if (score > alpha) {
            if (ply == 0 && limits.mode != MODE_DEPTH) {
                report_pv(score, TT_LOWER, played);
                if (i > 0) search_info.root_fail = 1;
                if (search_info.depth > 1 && score < search_info.last_score - 100) search_info.root_fail = 2;
            }
            alpha = score;
            best_move = played;
            if (alpha >= beta) {
                // Step 8. Fail high: a plain quiet move feeds history and killers.
                if ((played >> 17) == 0) {
                    history[move_moved(played) * 64 + move_to(played)] += uint32_t(depth * depth);
                    ++history_changes;
                    if (played != killers[ply][0] && played != killers[ply][1]) {
                        killers[ply][1] = killers[ply][0];
                        killers[ply][0] = played;
                    }
                }
                tt_store(key, alpha, depth, TT_LOWER, played);
                return alpha;
            }
        }
        if (ply == 0) {
            root_nodes[word & 0xFFF] = search_info.nodes - nodes_before;
            nodes_before = search_info.nodes;
        }
    }

    // Step 9. All moves done or pruned.
    if (best_move != 0)
        tt_store(key, alpha, depth, TT_EXACT, best_move);
    else if (!no_upper_store)
        tt_store(key, alpha, depth, TT_UPPER, 0);
    if (ply == 0) report_pv(alpha, TT_EXACT, best_move);
    return alpha;
}

}  // namespace velkor
