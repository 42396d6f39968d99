// The transposition table: buckets of four 16-byte entries under the full
// position key, with ages so that scores serve only the current iteration.
#pragma once

#include <cstdint>

#include "engine/types.h"

namespace velkor {

struct tt_entry {
    uint64_t tt_key;
    uint64_t tt_data;  // move 0-31, score 32-47, bound 48-49, depth 50-55, age 56-63
};
static_assert(sizeof(tt_entry) == 16);

// Table sizes in MB: the default, and the limits of the Hash option.
inline constexpr int TT_DEFAULT_MB = 128, TT_MIN_MB = 1, TT_MAX_MB = 65536;

enum : int { TT_UPPER = 1, TT_LOWER = 2, TT_EXACT = 3 };
inline constexpr int32_t TT_MISS = -0x10000000;

extern tt_entry* tt_table;
extern uint64_t tt_entries;
extern uint64_t tt_mask;
extern uint64_t tt_used;
extern uint32_t tt_age;

// A new empty table of mb megabytes; a bad size falls back to 128, and a
// size that cannot be had is halved down to 1 MB before the engine halts.
void tt_resize(int mb);
void tt_free();
void tt_new_search();
// Backs the whole table with memory and touches each page once, leaving
// every entry as it is, unless that was done since the table was made: a
// search then takes no page faults on its clock. tt_clear does it too.
void tt_make_resident();
void tt_clear();
int tt_hashfull();

// The four entries that a key addresses.
inline tt_entry* tt_bucket(uint64_t key) { return tt_table + (uint32_t(key) & tt_mask); }

// Two filters over the keys, one bit per key chosen by its top 21 bits (the
// pair of words, then the bit in each), kept behind the table's entries. A
// pair shares one cache line, so that one fetch answers both.
// - recent: the keys stored since the age last changed. A key whose bit is
//   clear has no entry of the current age, and tt_probe answers without
//   reading its bucket, which is nearly always far away in memory. (While
//   the table may still hold entries of the same age from 256 ages before,
//   the stored filter serves in its place.)
// - stored: the keys stored since the table was last cleared. A key whose
//   bit is clear has no entry at all, and tt_best_move answers 0 unread.
struct tt_filter_t {
    uint64_t recent;
    uint64_t stored;
};
inline constexpr int TT_FILTER_INDEX_BITS = 15;  // the key's top bits that choose the pair
inline constexpr uint64_t TT_FILTERS = uint64_t(1) << TT_FILTER_INDEX_BITS;
extern tt_filter_t* tt_filters;
inline tt_filter_t& tt_filter(uint64_t key) { return tt_filters[key >> (64 - TT_FILTER_INDEX_BITS)]; }
inline uint64_t tt_filter_bit(uint64_t key) { return uint64_t(1) << ((key >> (58 - TT_FILTER_INDEX_BITS)) & 63); }

// Start loading a key's bucket, or only its filters, into the cache; a
// probe that follows other work then finds it there.
inline void tt_prefetch(uint64_t key) { __builtin_prefetch(tt_bucket(key)); }
inline void tt_prefetch_filter(uint64_t key) { __builtin_prefetch(&tt_filter(key)); }
inline bool tt_maybe_stored(uint64_t key) { return tt_filter(key).stored & tt_filter_bit(key); }

// Stores wait in a short queue and go into their buckets a few at a time.
// The buckets of half a queue are fetched together, so that their long
// trips to memory overlap, and those stores go in half a queue of stores
// later, when their buckets have arrived. A read of a bucket that a waiting store
// addresses lets the whole queue in first, and so does everything that
// looks at the whole table: every answer is the one that storing at once
// would give. tt_flush lets the queue in at once.
inline constexpr int TT_QUEUE = 16;
void tt_flush();

move_t tt_best_move(uint64_t key);  // any age
move_t tt_pv_move(uint64_t key);    // current age only
int32_t tt_probe(uint64_t key, int depth, int32_t alpha, int32_t beta);
void tt_store(uint64_t key, int32_t score, int depth, int bound, move_t move);

// Field packing, for the table and its tests.
constexpr uint64_t tt_pack(move_t move, int32_t score, int bound, int depth, uint32_t age) {
    const uint64_t field = score >= 0 ? uint64_t(score) : uint64_t(32768 - score);
    return uint64_t(move) | field << 32 | uint64_t(bound) << 48 | uint64_t(depth) << 50 | uint64_t(age) << 56;
}
constexpr int32_t tt_score(uint64_t data) {
    const int32_t field = int32_t((data >> 32) & 0xFFFF);
    return field & 0x8000 ? 32768 - field : field;
}
constexpr int tt_bound(uint64_t data) { return int((data >> 48) & 3); }
constexpr int tt_depth(uint64_t data) { return int((data >> 50) & 63); }
constexpr uint32_t tt_entry_age(uint64_t data) { return uint32_t(data >> 56); }

static_assert(tt_score(tt_pack(0, -5, TT_UPPER, 0, 0)) == -5 && ((tt_pack(0, -5, 1, 0, 0) >> 32) & 0xFFFF) == 0x8005);
static_assert(tt_score(tt_pack(0, -30000, TT_EXACT, 63, 255)) == -30000);

}  // namespace velkor
