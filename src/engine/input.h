// Standard input, read in blocks: the one source of command bytes, and the
// tests for waiting input that end a running search.
#pragma once

#include <cstddef>

namespace velkor {

// The next byte of standard input, or EOF once it has ended.
int input_byte();

// From now on the input is this text, then its end (for fuzzing the loop).
void input_from_memory(const char* text, size_t size);

// Bytes of input wait to be read; any ends a running search.
bool input_pending();

// The input has ended: an infinite search then has nobody left to stop it.
bool input_closed();

// Turns the CR LF line ends of a block read from a console into LF, in
// place; returns the block's new length.
size_t drop_console_cr(char* bytes, size_t n);

}  // namespace velkor
