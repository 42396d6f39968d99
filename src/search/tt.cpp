#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "search/search.h"

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace velkor {

tt_entry* tt_table = nullptr;
uint64_t tt_entries = 0;
uint64_t tt_mask = 0;
uint64_t tt_used = 0;
uint32_t tt_age = 0;

tt_filter_t* tt_filters = nullptr;

namespace {

uint32_t recent_age = 0;
uint64_t ages_used[4];        // the ages stored with since the last clear
bool recent_written = false;  // a store has set a recent bit since that filter was last emptied

struct waiting_store_t {
    uint64_t key;
    int32_t score;
    int depth;
    int bound;
    move_t move;
};
waiting_store_t waiting[TT_QUEUE];
int waiting_count = 0;

// A recent filter for the present age, empty, if no entry can have that age yet.
void restart_filter() {
    if (ages_used[tt_age >> 6] & uint64_t(1) << (tt_age & 63)) {
        recent_age = 256;
        return;
    }
    if (recent_written)
        for (uint64_t i = 0; i < TT_FILTERS; ++i) tt_filters[i].recent = 0;
    recent_written = false;
    recent_age = tt_age;
}

// Lets the queue in before a read of the key's bucket, if a waiting store addresses it.
void settle(uint64_t key) {
    const uint64_t bucket = uint32_t(key) & tt_mask;
    for (int i = 0; i < waiting_count; ++i)
        if ((uint32_t(waiting[i].key) & tt_mask) == bucket) {
            tt_flush();
            return;
        }
}

#if defined(__linux__)
// The table and its filters in one mapping of their own: a mapping starts
// on a page, so that a bucket is one cache line, and fresh pages read as
// zero. It stays on small pages. On huge ones (madvise) searches ran no
// faster, and a fresh process could wait 0.2 s for the kernel to assemble
// and clear them, where it backs 128 MB of small pages in about 0.1 s.
void* tt_mapping = nullptr;
size_t tt_mapping_bytes = 0;
bool tt_resident = false;

void* zeroed_block(size_t bytes) {
    void* block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) return nullptr;
    tt_mapping = block;
    tt_mapping_bytes = bytes;
    tt_resident = false;
    return block;
}

// Has the kernel back the whole table with pages in one call. Taking them
// by first touch costs one fault per page instead, which under a hypervisor
// took four times as long (0.36 s against 0.09 s for 128 MB). A kernel
// without the call (before 5.14) leaves it to the faults. Even after it the
// first access to each page cost about 1.5 us under that hypervisor (50 ms
// for 128 MB), so one byte of each page is read here as well.
void make_resident(void* block, size_t bytes) {
    if (tt_resident) return;
#ifdef MADV_POPULATE_WRITE
    madvise(block, bytes, MADV_POPULATE_WRITE);
#endif
    constexpr size_t PAGE = 4096;
    const volatile char* const first = static_cast<const volatile char*>(block);
    for (size_t at = 0; at < bytes; at += PAGE) (void)first[at];
    tt_resident = true;
}

void release_table() {
    if (tt_mapping) munmap(tt_mapping, tt_mapping_bytes);
    tt_mapping = nullptr;
}
#else
// A block larger than the address space (a table of gigabytes in 32-bit
// WebAssembly) is refused like any other that doesn't fit.
void* zeroed_block(uint64_t bytes) { return bytes <= SIZE_MAX ? calloc(size_t(bytes), 1) : nullptr; }
void make_resident(void*, size_t) {}
void release_table() { free(tt_table); }
#endif

// The entries and, behind them, the filters: one block.
uint64_t block_bytes() { return tt_entries * sizeof(tt_entry) + TT_FILTERS * sizeof(tt_filter_t); }

// One attempt at a table of mb megabytes.
bool tt_allocate(int mb) {
    tt_used = 0;
    tt_age = 0;
    tt_entries = uint64_t(mb) * 65536;
    tt_mask = tt_entries - 4;
    tt_table = static_cast<tt_entry*>(zeroed_block(block_bytes()));
    tt_filters = tt_table ? reinterpret_cast<tt_filter_t*>(tt_table + tt_entries) : nullptr;
    waiting_count = 0;
    memset(ages_used, 0, sizeof ages_used);
    recent_age = 0;  // and the filters read as zero like the rest of the block
    recent_written = false;
    printf("info debug Creation of Transposition Table (%i MB) : %s\n", mb, tt_table ? "success" : "failure");
    return tt_table != nullptr;
}

}  // namespace

void tt_resize(int mb) {
    tt_free();
    if (mb < TT_MIN_MB || mb > TT_MAX_MB || (mb & (mb - 1)) != 0) {
        printf("info debug Creation of Transposition Table (%i MB) : size reset to default\n", mb);
        mb = TT_DEFAULT_MB;
    }
    while (!tt_allocate(mb)) {
        if (mb == TT_MIN_MB) {
            printf("info string Velkor will now halt...\n");
            exit(1);
        }
        mb /= 2;
    }
}

void tt_free() {
    release_table();
    tt_table = nullptr;
    tt_filters = nullptr;
    waiting_count = 0;
}

void tt_new_search() {
    tt_flush();
    tt_age = (tt_age + 1) & 255;
    restart_filter();
}

void tt_make_resident() { make_resident(tt_table, block_bytes()); }

void tt_clear() {
    tt_make_resident();
    memset(tt_table, 0, block_bytes());
    waiting_count = 0;
    recent_written = false;
    tt_age = 0;
    tt_used = 0;
    memset(ages_used, 0, sizeof ages_used);
    restart_filter();
}

int tt_hashfull() {
    tt_flush();
    return int(tt_used * 1000 / tt_entries);
}

move_t tt_best_move(uint64_t key) {
    if (!tt_maybe_stored(key)) return 0;
    settle(key);
    const tt_entry* e = tt_bucket(key);
    for (int i = 0; i < 4; ++i)
        if (e[i].tt_key == key) return move_t(e[i].tt_data);
    return 0;
}

move_t tt_pv_move(uint64_t key) {
    settle(key);
    const tt_entry* e = tt_bucket(key);
    for (int i = 0; i < 4; ++i)
        if (e[i].tt_key == key && tt_entry_age(e[i].tt_data) == tt_age) return move_t(e[i].tt_data);
    return 0;
}

int32_t tt_probe(uint64_t key, int depth, int32_t alpha, int32_t beta) {
    const tt_filter_t& filter = tt_filter(key);
    if (!((recent_age == tt_age ? filter.recent : filter.stored) & tt_filter_bit(key))) return TT_MISS;
    settle(key);
    const tt_entry* e = tt_bucket(key);
    for (int i = 0; i < 4; ++i) {
        const uint64_t data = e[i].tt_data;
        if (e[i].tt_key != key || tt_entry_age(data) != tt_age || tt_depth(data) < depth) continue;
        const int32_t score = tt_score(data);
        const int bound = tt_bound(data);
        if (bound == TT_EXACT || (bound == TT_UPPER && alpha >= score) || (bound == TT_LOWER && beta <= score))
            return score;
    }
    return TT_MISS;
}

namespace {

// Same key: refused only by a current entry with a higher bound code and a
// greater depth. Else the first empty entry, else the one of least value:
// oldest first, then lowest bound code, then lowest depth.
void store_now(const waiting_store_t& w) {
    const uint64_t key = w.key;
    const int depth = w.depth, bound = w.bound;
    tt_entry* e = tt_bucket(key);
    tt_entry* target = nullptr;
    for (int i = 0; i < 4 && !target; ++i)
        if (e[i].tt_key == key) {
            const uint64_t data = e[i].tt_data;
            if (tt_entry_age(data) == tt_age && bound < tt_bound(data) && depth < tt_depth(data)) return;
            target = &e[i];
        }
    for (int i = 0; i < 4 && !target; ++i)
        if (e[i].tt_data == 0) target = &e[i];
    if (!target) {
        int least = 0x7FFFFFFF;
        for (int i = 0; i < 4; ++i) {
            const uint64_t data = e[i].tt_data;
            const uint32_t age = tt_entry_age(data);
            const int distance = int(age <= tt_age ? tt_age - age : tt_age + 256 - age);
            const int value = (256 - distance) * 256 + tt_bound(data) * 64 + tt_depth(data);
            if (value < least) {
                least = value;
                target = &e[i];
            }
        }
    }
    if (target->tt_data == 0) ++tt_used;
    target->tt_key = key;
    target->tt_data = tt_pack(w.move, w.score, bound, depth, tt_age);
}

}  // namespace

void tt_flush() {
    for (int i = 0; i < waiting_count; ++i) tt_prefetch(waiting[i].key);
    for (int i = 0; i < waiting_count; ++i) store_now(waiting[i]);
    waiting_count = 0;
}

void tt_store(uint64_t key, int32_t score, int depth, int bound, move_t move) {
    if (depth > MAX_DEPTH - 1) return;
    tt_filter_t& filter = tt_filter(key);
    filter.recent |= tt_filter_bit(key);
    filter.stored |= tt_filter_bit(key);
    recent_written = true;
    ages_used[tt_age >> 6] |= uint64_t(1) << (tt_age & 63);
    waiting[waiting_count++] = {key, score, depth, bound, move};
    constexpr int HALF = TT_QUEUE / 2;
    if (waiting_count == HALF) {
        for (int i = 0; i < HALF; ++i) tt_prefetch(waiting[i].key);
    } else if (waiting_count == TT_QUEUE) {
        for (int i = 0; i < HALF; ++i) store_now(waiting[i]);
        for (int i = 0; i < HALF; ++i) {
            waiting[i] = waiting[HALF + i];
            tt_prefetch(waiting[i].key);
        }
        waiting_count = HALF;
    }
}

}  // namespace velkor
