#include "engine/magics.h"

#include "engine/geometry.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace velkor {

// Found once by init_magics(1); any set that passes the collision rule serves.
// clang-format off
uint64_t rook_magics[64] = {
    0x008000c000702080, 0x01c0016000443008, 0x0080081000802000, 0x0100100008442100,
    0x010005001048000a, 0x0100028100080c00, 0x0080010002004880, 0xc100018021000042,
    0x400900210080004a, 0x8800400050002008, 0x000080100280a008, 0x48410010010018a0,
    0x4001001105000800, 0x00c5001802140100, 0x0002800500020080, 0x8020800080004100,
    0x01018080004010a6, 0x0110044001200040, 0x0420160020820040, 0x00840a0010420020,
    0x0281808004000800, 0x114400800a001480, 0x0000240008104203, 0x000002000c008841,
    0x1c00400080082092, 0x4090114040002000, 0x0800384100200100, 0x0810200900100100,
    0x1101000500508800, 0x00c8420080240080, 0x0024304400420809, 0x0008811200044084,
    0x0018824000800026, 0x2028402000401006, 0x0000430011002004, 0x0000801000800804,
    0x0404002800800480, 0x0802008400800280, 0x0008101804000a45, 0x1000800262800100,
    0x0010824001208000, 0x6020400100810020, 0x0100102001010042, 0x4084500100090021,
    0x80000801000d0010, 0x0012002804060090, 0x0000121058140081, 0x4020104514820004,
    0x22aa800027400080, 0x0001208302044200, 0x3009002000481500, 0x0200180080100080,
    0x0020280084018180, 0x800a000400028080, 0x0400091016184400, 0x0407040100688200,
    0x0000804222030412, 0x0004c00100802011, 0x2010104020008901, 0x8101000821051001,
    0x2092000408201002, 0x0002000410080902, 0x0000300b182e0084, 0x0100022400550082,
};
uint64_t bishop_magics[64] = {
    0x8440082801042324, 0x9790040800a26100, 0x000828010020a488, 0x0234050208200326,
    0x1214104441040004, 0x00c9040240401120, 0x61010801108a00c0, 0x000010cc10041008,
    0x8008200464028404, 0x0120090a00a40301, 0x00a8c80801242000, 0x2100122082000008,
    0x02240c04200c1141, 0x2a20008230414012, 0x1050408808121088, 0x0a44018044100450,
    0x00200440094d3100, 0x02a4012a08082100, 0xc004420800410200, 0x2842000402120013,
    0x0006000400a20181, 0x4005000881414008, 0x0401100844100c00, 0x0018404105421000,
    0x181040000a221442, 0x0804100e82020800, 0x0200480810408400, 0x4011080004004111,
    0x0209060004018405, 0x0200450006010120, 0x004200880208d000, 0x4091220888a20302,
    0x6301100821102042, 0x0400822000508400, 0x0000406080100100, 0x1000020080080080,
    0x2024410040240240, 0x0260040020041200, 0x0008810300104800, 0x0004010200004a41,
    0x0110822090002134, 0x0084020a0210100a, 0x004d002303005000, 0x0081014052001040,
    0x0100010202000420, 0x0001200493000280, 0xc050c44800840944, 0x00100b0440802304,
    0x0104008210100e00, 0x010700482c042000, 0x40000e2284300050, 0x0200a08042020040,
    0x000023c0d0c10010, 0x0048216302020022, 0xc011200841004082, 0x0010022081020000,
    0x0002004218010832, 0x00000180a4100200, 0x4884000022111024, 0x040040800c8c0c08,
    0x2400022020024c00, 0x08408040090d0100, 0x0901082083020220, 0x0221084100440040,
};
// clang-format on
bitboard rook_masks[64];
bitboard bishop_masks[64];
int32_t rook_shifts[64];
int32_t bishop_shifts[64];
bitboard rook_table[64][4096];
bitboard bishop_table[64][512];

namespace {

using geometry_detail::bishop_dirs;
using geometry_detail::rook_dirs;

// Everything one slider kind needs: its directions, its arrays, its block size.
struct slider_t {
    const char* name;
    const int (*dirs)[2];
    uint64_t* magics;
    bitboard* masks;
    int32_t* shifts;
    bitboard* table;  // 64 blocks of block_size slots
    int block_size;
};

// Attacks found by walking each ray until it leaves the board or meets a piece.
bitboard reference_attacks(const int (*dirs)[2], int square, bitboard occupancy) {
    bitboard set = 0;
    for (int d = 0; d < 4; ++d) {
        int r = rank_of(square) + dirs[d][0], f = file_of(square) + dirs[d][1];
        for (; r >= 0 && r < 8 && f >= 0 && f < 8; r += dirs[d][0], f += dirs[d][1]) {
            set |= square_bit(8 * r + f);
            if (occupancy & square_bit(8 * r + f)) break;
        }
    }
    return set;
}

// The rays without the last square of each: a piece there cannot change the set.
bitboard relevant_mask(const int (*dirs)[2], int square) {
    bitboard mask = 0;
    for (int d = 0; d < 4; ++d) {
        int r = rank_of(square) + dirs[d][0], f = file_of(square) + dirs[d][1];
        for (; r >= 0 && r < 8 && f >= 0 && f < 8; r += dirs[d][0], f += dirs[d][1]) {
            int nr = r + dirs[d][0], nf = f + dirs[d][1];
            if (nr < 0 || nr > 7 || nf < 0 || nf > 7) break;
            mask |= square_bit(8 * r + f);
        }
    }
    return mask;
}

// Sixteen random bits per call of rand, four calls to the word.
uint64_t random_word() {
    uint64_t w = 0;
    for (int i = 0; i < 4; ++i) w |= uint64_t(rand() & 0xFFFF) << (16 * i);
    return w;
}

// Draws sparse candidates until one maps every subset of the mask to a slot
// without a harmful collision (two subsets may share a slot only when their
// attack sets agree).
uint64_t find_magic(const bitboard* occupancy, const bitboard* attacks, int count, int shift, bitboard* used) {
    for (;;) {
        uint64_t candidate = random_word() & random_word() & random_word();
        for (int i = 0; i < count; ++i) used[i] = 0;
        bool good = true;
        for (int i = 0; i < count && good; ++i) {
            bitboard& slot = used[(occupancy[i] * candidate) >> shift];
            if (slot == 0)
                slot = attacks[i];
            else if (slot != attacks[i])
                good = false;
        }
        if (good) return candidate;
    }
}

int init_slider(const slider_t& p) {
    const size_t scratch = size_t(64) * size_t(p.block_size);
    bitboard* occupancy = static_cast<bitboard*>(calloc(scratch, sizeof(bitboard)));
    bitboard* attacks = static_cast<bitboard*>(calloc(scratch, sizeof(bitboard)));
    if (occupancy == nullptr || attacks == nullptr) {
        free(occupancy);
        free(attacks);
        return -1;
    }
    for (int sq = 0; sq < 64; ++sq) {
        bitboard mask = relevant_mask(p.dirs, sq);
        int bits = popcount(mask);
        p.masks[sq] = mask;
        p.shifts[sq] = 64 - bits;
        int q[12];
        for (int k = 0; k < bits; ++k) q[k] = pop_square(mask);
        for (int i = 0; i < (1 << bits); ++i) {
            bitboard subset = 0;
            for (int k = 0; k < bits; ++k)
                if (i & (1 << k)) subset |= square_bit(q[k]);
            occupancy[sq * p.block_size + i] = subset;
            attacks[sq * p.block_size + i] = reference_attacks(p.dirs, sq, subset);
        }
    }
    if (p.magics[0] == 0) {
        printf("Magic numbers for %s :\n", p.name);
        srand(unsigned(time(nullptr)));
        bitboard used[4096];
        for (int sq = 0; sq < 64; ++sq) {
            p.magics[sq] = find_magic(occupancy + sq * p.block_size, attacks + sq * p.block_size,
                                      1 << (64 - p.shifts[sq]), p.shifts[sq], used);
            printf("0x%08x%08x, ", unsigned(p.magics[sq] >> 32), unsigned(p.magics[sq]));
        }
        printf("\n");
    }
    for (int sq = 0; sq < 64; ++sq)
        for (int i = 0; i < (1 << (64 - p.shifts[sq])); ++i) {
            const uint64_t index =
                slider_index(occupancy[sq * p.block_size + i], p.masks[sq], p.magics[sq], p.shifts[sq]);
            p.table[sq * p.block_size + index] = attacks[sq * p.block_size + i];
        }
    free(occupancy);
    free(attacks);
    return 0;
}

}  // namespace

int init_rook_magics() {
    return init_slider({"rooks", rook_dirs, rook_magics, rook_masks, rook_shifts, &rook_table[0][0], 4096});
}

int init_bishop_magics() {
    return init_slider({"bishops", bishop_dirs, bishop_magics, bishop_masks, bishop_shifts, &bishop_table[0][0], 512});
}

int init_magics(int regenerate) {
    if (regenerate != 0) {
        rook_magics[0] = 0;
        bishop_magics[0] = 0;
    }
    if (init_rook_magics() != 0) return -1;
    return init_bishop_magics();
}

}  // namespace velkor
