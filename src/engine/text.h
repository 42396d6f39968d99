// Number reading for command and FEN fields. A number too large for its
// field reads as the largest value the field holds, never as garbage.
#pragma once

#include <cstdint>

namespace velkor {

// Like the "%i" conversion: leading white space, an optional sign, then
// decimal, octal behind a leading 0 or hexadecimal behind 0x. Returns false
// when no digit is there; the value is clamped to the int range.
bool scan_int(const char* text, int* value);

// Like "%llu" on a decimal: leading white space, then digits; clamped to the
// 64-bit range. A minus sign is not a number here.
bool scan_u64(const char* text, uint64_t* value);

}  // namespace velkor
