#include "support/support.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

#include "engine/engine.h"

namespace velkor::test {

void load(const char* fen) {
    if (const char* reason = fen_error(fen))
        throw std::runtime_error(std::string("bad test FEN ") + fen + ": " + reason);
    set_fen(fen);
}

namespace {

// Everything in a file from its start; closes it.
std::string read_all(int fd) {
    std::string text;
    lseek(fd, 0, SEEK_SET);
    char chunk[4096];
    for (ssize_t n; (n = read(fd, chunk, sizeof chunk)) > 0;) text.append(chunk, size_t(n));
    close(fd);
    return text;
}

}  // namespace

std::string capture_stdout(const std::function<void()>& fn) {
    fflush(stdout);
    char path[] = "/tmp/velkor-capture-XXXXXX";
    int fd = mkstemp(path);
    int saved = dup(1);
    dup2(fd, 1);
    fn();
    fflush(stdout);
    dup2(saved, 1);
    close(saved);
    unlink(path);
    return read_all(fd);
}

std::string generated(unsigned mode) {
    update_checks();
    update_attacks();
    const int n = generate_moves(0, mode);
    std::string moves;
    for (int i = 0; i < n; ++i) moves += (i ? " " : "") + capture_stdout([&] { print_move(move_lists[0][i]); });
    return moves;
}

std::vector<record_t> records(const char* file) {
    const std::string path = std::string(VELKOR_TEST_DATA "/") + file;
    std::ifstream in(path);
    if (!in) throw std::runtime_error(std::string("no data file ") + file);
    std::vector<record_t> out;
    int number = 0;
    for (std::string line; std::getline(in, line);) {
        ++number;
        if (line.empty() || line[0] == '#') continue;
        out.emplace_back();
        out.back().path = path;
        out.back().line = number;
        for (size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
            end = line.find(';', start);
            std::string field = line.substr(start, end == std::string::npos ? end : end - start);
            field.erase(0, field.find_first_not_of(' '));
            field.erase(field.find_last_not_of(' ') + 1);
            out.back().push_back(field);
        }
    }
    return out;
}

void report(const std::string& name, const std::string& text) {
    const char* folder = getenv("VELKOR_REPIN");
    if (!folder) return;
    const auto path = std::filesystem::path(folder) / name;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::app) << text;
}

void pinned(const record_t& r, size_t field, const std::string& actual, const std::string& where) {
    if (r.at(field) == actual) return;
    ADD_FAILURE() << where << "\n  pinned: " << r[field] << "\n  now:    " << actual;
    report("pins", r.path + "\t" + std::to_string(r.line) + "\t" + std::to_string(field) + "\t" + actual + "\n");
}

void random_games(int games, int plies, uint32_t seed, const std::function<void(int n)>& visit) {
    for (const auto& start : records("varied.epd"))
        for (int game = 0; game < games; ++game) {
            load(start[0].c_str());
            for (int ply = 0; ply < plies; ++ply) {
                update_checks();
                update_attacks();
                const int n = generate_moves(0, GENERATE_ALL);
                visit(n);
                if (n == 0 || is_draw()) break;
                seed = seed * 1103515245u + 12345u;
                make_move(move_lists[0][(seed >> 8) % unsigned(n)]);
            }
        }
}

process_result run_engine_process(const std::string& input, const std::vector<std::string>& args, int timeout_seconds,
                                  size_t address_space_limit) {
    int to_child[2], from_child[2];
    if (pipe(to_child) != 0 || pipe(from_child) != 0) throw std::runtime_error("pipe");
    char err_path[] = "/tmp/velkor-stderr-XXXXXX";
    const int err_fd = mkstemp(err_path);
    unlink(err_path);
    // VELKOR_WRAPPER (e.g. "valgrind -q --error-exitcode=99") runs the engine under a tool;
    // VELKOR_TEST_ENGINE names another engine binary (the Windows one, under wine).
    std::vector<std::string> command;
    if (const char* wrapper = getenv("VELKOR_WRAPPER")) {
        std::istringstream words(wrapper);
        for (std::string w; words >> w;) command.push_back(w);
    }
    const char* engine = getenv("VELKOR_TEST_ENGINE");
    command.push_back(engine ? engine : VELKOR_BINARY);
    command.insert(command.end(), args.begin(), args.end());
    pid_t pid = fork();
    if (pid == 0) {
        if (address_space_limit) {
            rlimit limit{address_space_limit, address_space_limit};
            setrlimit(RLIMIT_AS, &limit);
        }
        dup2(to_child[0], 0);
        dup2(from_child[1], 1);
        dup2(err_fd, 2);
        for (int fd : {to_child[0], to_child[1], from_child[0], from_child[1], err_fd}) close(fd);
        std::vector<char*> argv;
        for (std::string& word : command) argv.push_back(word.data());
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    close(to_child[0]);
    close(from_child[1]);
    signal(SIGPIPE, SIG_IGN);
    fcntl(to_child[1], F_SETFL, O_NONBLOCK);

    process_result result;
    size_t written = 0;
    int in_fd = to_child[1];
    if (input.empty()) {
        close(in_fd);
        in_fd = -1;
    }
    const auto start = std::chrono::steady_clock::now();
    const auto deadline = start + std::chrono::seconds(timeout_seconds);
    auto resume = start;  // no writing before this, after a pause
    size_t awaited = 0;   // bestmove lines to see before writing on
    for (;;) {
        const auto now = std::chrono::steady_clock::now();
        const int left = int(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count());
        if (left <= 0) {
            result.timed_out = true;
            kill(pid, SIGKILL);
            break;
        }
        size_t seen = 0;
        for (size_t at = 0; (at = result.out.find("bestmove ", at)) != std::string::npos; ++at) ++seen;
        const bool may_write = in_fd >= 0 && now >= resume && seen >= awaited;
        const int wait = in_fd >= 0 && !may_write && now < resume
                             ? int(std::chrono::duration_cast<std::chrono::milliseconds>(resume - now).count()) + 1
                             : left;
        pollfd fds[2] = {{from_child[0], POLLIN, 0}, {in_fd, POLLOUT, 0}};
        poll(fds, may_write ? 2 : 1, std::min(wait, left));
        if (may_write && (fds[1].revents & (POLLOUT | POLLERR | POLLHUP))) {
            size_t end = input.find_first_of(std::string{PAUSE, AWAIT_BESTMOVE}, written);
            if (end == std::string::npos) end = input.size();
            ssize_t n = end > written ? write(in_fd, input.data() + written, end - written) : 0;
            if (n > 0) written += size_t(n);
            if (written == end && end < input.size()) {
                if (input[end] == PAUSE)
                    resume = std::chrono::steady_clock::now() + std::chrono::milliseconds(PAUSE_MS);
                else
                    ++awaited;
                ++written;  // past the mark
            }
            if (n < 0 || written == input.size()) {
                close(in_fd);
                in_fd = -1;
            }
        }
        if (fds[0].revents & (POLLIN | POLLHUP)) {
            char chunk[65536];
            ssize_t n = read(from_child[0], chunk, sizeof chunk);
            if (n <= 0) break;
            result.out.append(chunk, size_t(n));
        }
    }
    if (in_fd >= 0) close(in_fd);
    close(from_child[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    result.err = read_all(err_fd);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::vector<std::string> split_lines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1)
        lines.push_back(text.substr(start, nl - start));
    if (start < text.size()) lines.push_back(text.substr(start));
    return lines;
}

}  // namespace velkor::test
