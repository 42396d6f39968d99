#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "protocol/protocol.h"
#include "search/search.h"

namespace velkor {

char input_line[INPUT_SIZE];

namespace {

char storage[65536];
const char* buffer = storage;  // bytes taken from the system (or given in memory)
size_t buffer_pos = 0, buffer_len = 0;
bool input_ended = false;

// The next byte of standard input, or EOF once it has ended.
int next_byte() {
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

}  // namespace

void input_from_memory(const char* text, size_t size) {
    buffer = text;
    buffer_pos = 0;
    buffer_len = size;
    input_ended = true;
}

bool read_line() {
    for (;;) {
        int length = 0, blanks = 0, c = 0;
        while ((c = next_byte()) != EOF && c != '\n') {
            if (c == ' ' || c == '\t') {
                if (length == 0 || ++blanks > 1) continue;
                c = ' ';
            } else {
                blanks = 0;
            }
            input_line[length++] = char(c);
            if (length == INPUT_SIZE - 1) {
                printf("info buffer Warning: input is too long and will be truncated (max = %i bytes)\n", INPUT_SIZE);
                while ((c = next_byte()) != EOF && c != '\n') {
                }
                break;
            }
        }
        input_line[length] = '\0';
        if (length > 0 && input_line[length - 1] == ' ') input_line[--length] = '\0';
        if (length > 0) return true;
        if (c == EOF) return false;  // an empty line is no command; read on unless input has ended
    }
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
