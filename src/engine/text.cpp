#include "engine/text.h"

#include <cctype>
#include <climits>

namespace velkor {

namespace {

int digit_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return 99;
}

// Reads digits of the base and saturates at limit; returns the number of digits.
int read_digits(const char*& p, unsigned base, uint64_t limit, uint64_t* value) {
    uint64_t v = 0;
    int digits = 0;
    for (; unsigned(digit_value(*p)) < base; ++p, ++digits) {
        unsigned d = unsigned(digit_value(*p));
        v = v > (limit - d) / base ? limit : v * base + d;
    }
    *value = v;
    return digits;
}

}  // namespace

bool scan_int(const char* text, int* value) {
    const char* p = text;
    while (isspace(static_cast<unsigned char>(*p))) ++p;
    bool negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    unsigned base = 10;
    if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X') && digit_value(p[2]) < 16) {
        base = 16;
        p += 2;
    } else if (p[0] == '0') {
        base = 8;
    }
    const uint64_t limit = negative ? uint64_t(INT_MAX) + 1 : uint64_t(INT_MAX);
    uint64_t magnitude = 0;
    if (read_digits(p, base, limit, &magnitude) == 0) return false;
    *value = negative ? int(-int64_t(magnitude)) : int(magnitude);
    return true;
}

bool scan_u64(const char* text, uint64_t* value) {
    const char* p = text;
    while (isspace(static_cast<unsigned char>(*p))) ++p;
    if (*p == '+') ++p;
    return read_digits(p, 10, UINT64_MAX, value) > 0;
}

}  // namespace velkor
