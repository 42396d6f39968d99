// Standard input, read in blocks from the system, and the tests for waiting
// input. Linux reads descriptor 0. Windows reads the standard input handle,
// whatever it is: the anonymous pipe a GUI starts its engine with, a
// console, or a file. WebAssembly reads what its host hands it.
#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <fcntl.h>
#include <io.h>
#include <windows.h>
#else
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#endif

#include <cstdint>
#include <cstdio>

#include "engine/clock.h"
#include "engine/input.h"

namespace velkor {

namespace {

char storage[65536];
const char* buffer = storage;  // bytes taken from the system (or given in memory)
size_t buffer_pos = 0, buffer_len = 0;
bool input_ended = false;

#if defined(_WIN32)

// The engine writes the same bytes as on Linux, LF line ends included: the
// C library's text mode would turn each LF into CR LF. This runs before
// main, so before the banner.
[[maybe_unused]] const int binary_output = _setmode(_fileno(stdout), _O_BINARY);

// What standard input is decides how its waiting bytes are counted; it is
// looked up once.
enum input_kind_t { KIND_UNKNOWN, KIND_PIPE, KIND_CONSOLE, KIND_FILE, KIND_OTHER };
input_kind_t kind = KIND_UNKNOWN;
HANDLE handle = nullptr;

void find_input() {
    if (kind != KIND_UNKNOWN) return;
    handle = GetStdHandle(STD_INPUT_HANDLE);
    DWORD mode = 0;
    switch (GetFileType(handle)) {
        case FILE_TYPE_PIPE: kind = KIND_PIPE; break;
        case FILE_TYPE_DISK: kind = KIND_FILE; break;
        case FILE_TYPE_CHAR: kind = GetConsoleMode(handle, &mode) ? KIND_CONSOLE : KIND_OTHER; break;
        default: kind = KIND_OTHER;  // no handle at all: its first read ends the input
    }
}

// One block of input into storage: its length, or 0 once the input has
// ended. Every kind ends with an empty read or a failed one (a pipe whose
// writer has gone fails, a console's Ctrl+Z reads as empty), so no read is
// ever repeated after the end. A console hands out a line at a time.
size_t read_block() {
    find_input();
    DWORD n = 0;
    if (!ReadFile(handle, storage, kind == KIND_CONSOLE ? 4096 : sizeof storage, &n, nullptr)) return 0;
    return kind == KIND_CONSOLE ? drop_console_cr(storage, n) : n;
}

// A pipe's waiting bytes, or -1 when the pipe can't be peeked: its writer
// has gone (*ended is then set), or the system refuses the peek (wine on a
// pipe from Linux).
int64_t pipe_waiting(bool* ended) {
    DWORD waiting = 0;
    if (PeekNamedPipe(handle, nullptr, 0, nullptr, &waiting, nullptr)) return waiting;
    const DWORD error = GetLastError();
    *ended = error == ERROR_BROKEN_PIPE || error == ERROR_PIPE_NOT_CONNECTED;
    return -1;
}

// The bytes of a file behind the read position, or -1 when the system can't tell.
int64_t file_left() {
    LARGE_INTEGER size, position, zero = {};
    if (!GetFileSizeEx(handle, &size) || !SetFilePointerEx(handle, zero, &position, FILE_CURRENT)) return -1;
    return size.QuadPart - position.QuadPart;
}

// A console has a line waiting once Enter has been pressed, as a Linux
// terminal hands over whole lines; key releases, mouse and focus records
// don't count. The first 512 waiting records are looked at.
constexpr DWORD CONSOLE_RECORDS = 512;
INPUT_RECORD console_records[CONSOLE_RECORDS];

bool console_line_waiting() {
    DWORD count = 0;
    if (!PeekConsoleInputA(handle, console_records, CONSOLE_RECORDS, &count)) return false;
    for (DWORD i = 0; i < count; ++i) {
        const INPUT_RECORD& record = console_records[i];
        if (record.EventType == KEY_EVENT && record.Event.KeyEvent.bKeyDown &&
            record.Event.KeyEvent.wVirtualKeyCode == VK_RETURN)
            return true;
    }
    return false;
}

// A pipe that can't be peeked has nothing waiting and never ends here:
// searches then stop by their own limits, and its end is still seen by the
// next read.
bool system_pending() {
    find_input();
    bool ended = false;
    switch (kind) {
        case KIND_PIPE: return pipe_waiting(&ended) > 0;
        case KIND_FILE: return file_left() > 0;
        case KIND_CONSOLE: return console_line_waiting();
        default: return false;
    }
}

// A console ends only when its Ctrl+Z is read.
bool system_closed() {
    find_input();
    bool ended = false;
    switch (kind) {
        case KIND_PIPE: return pipe_waiting(&ended) < 0 && ended;
        case KIND_FILE: return file_left() == 0;
        default: return false;
    }
}

#elif defined(__EMSCRIPTEN__)

// WebAssembly: the host (the Node entry, or the page's worker) hands the
// engine its input through the functions of web/engine/library.js. A read
// waits for the host's next lines; the pending test now and then lets the
// host's event loop run, which is when a stop can arrive.
extern "C" {
int velkor_read_input(char* bytes, int size);
int velkor_input_waiting();
int velkor_input_ended();
}

size_t read_block() { return size_t(velkor_read_input(storage, int(sizeof storage))); }
bool system_pending() { return velkor_input_waiting() != 0; }
bool system_closed() { return velkor_input_ended() != 0; }

#else

size_t read_block() {
    ssize_t n;
    do n = read(0, storage, sizeof storage);
    while (n < 0 && errno == EINTR);
    return n > 0 ? size_t(n) : 0;
}

bool system_pending() {
    int waiting = 0;
    return ioctl(0, FIONREAD, &waiting) == 0 && waiting > 0;
}

// Readable, or hung up, with no byte to read.
bool system_closed() {
    pollfd fd = {0, POLLIN, 0};
    int waiting = 0;
    return poll(&fd, 1, 0) == 1 && (fd.revents & (POLLIN | POLLHUP)) && ioctl(0, FIONREAD, &waiting) == 0 &&
           waiting == 0;
}

#endif

}  // namespace

// A console ends each typed line with CR LF; the engine's lines end with
// the LF alone, as a Linux terminal gives them, so the console's CR goes.
// Pipes and files keep every byte.
size_t drop_console_cr(char* bytes, size_t n) {
    size_t kept = 0;
    for (size_t i = 0; i < n; ++i)
        if (bytes[i] != '\r' || i + 1 == n || bytes[i + 1] != '\n') bytes[kept++] = bytes[i];
    return kept;
}

#if defined(_WIN32)
uint64_t clock_us() {
    LARGE_INTEGER frequency, now;
    QueryPerformanceFrequency(&frequency);
    QueryPerformanceCounter(&now);
    const uint64_t f = uint64_t(frequency.QuadPart), t = uint64_t(now.QuadPart);
    return t / f * 1000000 + t % f * 1000000 / f;
}
#endif

int input_byte() {
    if (buffer_pos == buffer_len) {
        if (input_ended) return EOF;
        fflush(stdout);  // what was written goes out before the engine waits
        const size_t n = read_block();
        if (n == 0) {
            input_ended = true;
            return EOF;
        }
        buffer = storage;
        buffer_pos = 0;
        buffer_len = n;
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
// bytes queued on standard input (a file's unread rest counts). Input that
// has ended is not pending.
bool input_pending() {
    if (buffer_pos < buffer_len) return true;
    if (input_ended) return false;
    return system_pending();
}

// Closed: nothing is left to hand out and the system says the input has
// ended.
bool input_closed() {
    if (buffer_pos < buffer_len) return false;
    if (input_ended) return true;
    return system_closed();
}

}  // namespace velkor
