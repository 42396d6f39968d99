#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "engine/input.h"

namespace velkor {

namespace {

char storage[65536];
const char* buffer = storage;  // bytes taken from the system (or given in memory)
size_t buffer_pos = 0, buffer_len = 0;
bool input_ended = false;

}  // namespace

int input_byte() {
    if (buffer_pos == buffer_len) {
        if (input_ended) return EOF;
        ssize_t n;
        do n = read(0, storage, sizeof storage);
        while (n < 0 && errno == EINTR);
        if (n <= 0) {
            input_ended = true;
            return EOF;
        }
        buffer = storage;
        buffer_pos = 0;
        buffer_len = size_t(n);
    }
    return static_cast<unsigned char>(buffer[buffer_pos++]);
}

void input_from_memory(const char* text, size_t size) {
    buffer = text;
    buffer_pos = 0;
    buffer_len = size;
    input_ended = true;
}

// Pending: bytes already taken from the system but not yet handed out, or
// bytes queued on standard input. Input that has ended is not pending.
bool input_pending() {
    if (buffer_pos < buffer_len) return true;
    if (input_ended) return false;
    int waiting = 0;
    return ioctl(0, FIONREAD, &waiting) == 0 && waiting > 0;
}

// Closed: nothing is left to hand out and the system says the input has
// ended (readable, or hung up, with no byte to read).
bool input_closed() {
    if (buffer_pos < buffer_len) return false;
    if (input_ended) return true;
    pollfd fd = {0, POLLIN, 0};
    int waiting = 0;
    return poll(&fd, 1, 0) == 1 && (fd.revents & (POLLIN | POLLHUP)) && ioctl(0, FIONREAD, &waiting) == 0 &&
           waiting == 0;
}

}  // namespace velkor
