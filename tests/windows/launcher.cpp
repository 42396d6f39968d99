// launcher.exe PROGRAM [ARGUMENTS...]: starts PROGRAM with its standard
// input and output on anonymous pipes made by CreatePipe, as a Windows GUI
// starts an engine, and relays its own standard input and output through
// them. Under wine a pipe that comes from Linux can't be peeked
// (PeekNamedPipe fails), while these can. The exit status is PROGRAM's.
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

namespace {

HANDLE engine_input = nullptr;  // the write end of the engine's standard input

// Our input, block by block, to the engine's; its end closes the engine's.
DWORD WINAPI relay_input(void*) {
    char block[4096];
    DWORD n = 0, written = 0;
    const HANDLE in = GetStdHandle(STD_INPUT_HANDLE);
    while (ReadFile(in, block, sizeof block, &n, nullptr) && n > 0)
        if (!WriteFile(engine_input, block, n, &written, nullptr)) break;
    CloseHandle(engine_input);
    return 0;
}

// The command line behind our own program's name, as it was given.
char* program_command_line() {
    char* line = GetCommandLineA();
    const bool quoted = *line == '"';
    for (line += quoted; *line && (quoted ? *line != '"' : *line != ' ' && *line != '\t'); ++line) {
    }
    if (quoted && *line) ++line;
    while (*line == ' ' || *line == '\t') ++line;
    return line;
}

}  // namespace

int main() {
    char* command = program_command_line();
    if (*command == '\0') return 2;
    SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, TRUE};
    HANDLE child_in = nullptr, child_out = nullptr, output = nullptr, error = nullptr;
    if (!CreatePipe(&child_in, &engine_input, &inherit, 0) || !CreatePipe(&output, &child_out, &inherit, 0) ||
        !DuplicateHandle(GetCurrentProcess(), GetStdHandle(STD_ERROR_HANDLE), GetCurrentProcess(), &error, 0, TRUE,
                         DUPLICATE_SAME_ACCESS))
        return 2;
    SetHandleInformation(engine_input, HANDLE_FLAG_INHERIT, 0);
    SetHandleInformation(output, HANDLE_FLAG_INHERIT, 0);

    STARTUPINFOA start = {};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdInput = child_in;
    start.hStdOutput = child_out;
    start.hStdError = error;
    PROCESS_INFORMATION engine = {};
    if (!CreateProcessA(nullptr, command, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &engine)) return 2;
    CloseHandle(child_in);
    CloseHandle(child_out);
    CloseHandle(error);
    CloseHandle(CreateThread(nullptr, 0, relay_input, nullptr, 0, nullptr));

    // The engine's output to ours until it has exited and its pipe is broken.
    char block[4096];
    DWORD n = 0, written = 0;
    const HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
    while (ReadFile(output, block, sizeof block, &n, nullptr) && n > 0)
        if (!WriteFile(out, block, n, &written, nullptr)) break;
    DWORD status = 2;
    WaitForSingleObject(engine.hProcess, INFINITE);
    GetExitCodeProcess(engine.hProcess, &status);
    return int(status);
}
