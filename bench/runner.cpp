// A dedicated match runner at its leanest, as the measure of how fast a
// match can be played on this machine: it replays given games, search for
// search, with nothing between the engines but pipes and a counter.
//
// Each line of standard input is one game: "a|b" (which engine has White),
// the start FEN or "startpos", then the game's moves, fields separated by
// '|'. Every position of the game from its start gets "position ... moves
// ..." and "go depth D" in one write, as match runners send them, and the
// bestmove must be the game's next move. Each game begins with ucinewgame
// and isready to White, then Black. CONCURRENCY processes take the games in
// order, each with its own two engines, started with "uci", the table size
// and isready; with no more processes than cores, each keeps to a core of
// its own with its engines, as the tuner's workers do.
//
// usage: velkor_runner ENGINE DEPTH HASH_MB CONCURRENCY ARGS_A ARGS_B < GAMES
//   (ARGS_A, ARGS_B: one command-line argument for each engine, or "")
// prints: "searches N bestmoves-differing M"
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <new>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct engine_t {
    pid_t pid = 0;
    int in = -1, out = -1;
    std::string buffer;
};

struct game_t {
    int white = 0;  // 0: engine a, 1: engine b
    std::string start;
    std::vector<std::string> moves;
};

engine_t start_engine(const char* path, const std::string& argument) {
    int to[2], from[2];
    if (pipe(to) != 0 || pipe(from) != 0) std::exit(2);
    engine_t e;
    e.pid = fork();
    if (e.pid == 0) {
        dup2(to[0], 0);
        dup2(from[1], 1);
        for (int fd : {to[0], to[1], from[0], from[1]}) close(fd);
        if (argument.empty())
            execl(path, path, nullptr);
        else
            execl(path, path, argument.c_str(), nullptr);
        _exit(127);
    }
    close(to[0]);
    close(from[1]);
    e.in = to[1];
    e.out = from[0];
    return e;
}

void send(engine_t& e, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t n = write(e.in, text.data() + done, text.size() - done);
        if (n <= 0) std::exit(3);
        done += size_t(n);
    }
}

// The engine's lines up to one that starts with `word`; returns that line.
std::string until(engine_t& e, const std::string& word) {
    for (;;) {
        for (size_t nl; (nl = e.buffer.find('\n')) != std::string::npos;) {
            std::string line = e.buffer.substr(0, nl);
            e.buffer.erase(0, nl + 1);
            if (line.compare(0, word.size(), word) == 0) return line;
        }
        char chunk[65536];
        const ssize_t n = read(e.out, chunk, sizeof chunk);
        if (n <= 0) {
            std::fprintf(stderr, "velkor_runner: an engine ended while awaited for \"%s\"\n", word.c_str());
            std::exit(3);
        }
        e.buffer.append(chunk, size_t(n));
    }
}

std::vector<game_t> read_games() {
    std::vector<game_t> games;
    for (std::string line; std::getline(std::cin, line);) {
        std::vector<std::string> fields;
        std::istringstream in(line);
        for (std::string f; std::getline(in, f, '|');) fields.push_back(f);
        if (fields.size() < 2) continue;
        game_t g{fields[0] == "b", fields[1], {}};
        if (fields.size() > 2) {
            std::istringstream moves(fields[2]);
            for (std::string m; moves >> m;) g.moves.push_back(m);
        }
        games.push_back(g);
    }
    return games;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 7) {
        std::fprintf(stderr, "usage: velkor_runner ENGINE DEPTH HASH_MB CONCURRENCY ARGS_A ARGS_B < GAMES\n");
        return 2;
    }
    const std::string go = std::string("go depth ") + argv[2] + "\n";
    const std::string hash = std::string("setoption name Hash value ") + argv[3] + "\n";
    const int concurrency = std::atoi(argv[4]);
    const std::vector<game_t> games = read_games();
    // The next game to take, and the counts, shared by the processes.
    struct shared_t {
        std::atomic<size_t> next;
        std::atomic<long> searches, differing;
    };
    auto* shared = static_cast<shared_t*>(
        mmap(nullptr, sizeof(shared_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    new (shared) shared_t{{0}, {0}, {0}};
    cpu_set_t allowed;
    sched_getaffinity(0, sizeof allowed, &allowed);
    std::vector<int> cores;
    for (int core = 0; core < CPU_SETSIZE; ++core)
        if (CPU_ISSET(core, &allowed)) cores.push_back(core);
    std::vector<pid_t> children;
    for (int c = 0; c < concurrency; ++c) {
        const pid_t child = fork();
        if (child != 0) {
            children.push_back(child);
            continue;
        }
        if (concurrency <= int(cores.size())) {
            cpu_set_t own;
            CPU_ZERO(&own);
            CPU_SET(cores[c], &own);
            sched_setaffinity(0, sizeof own, &own);
        }
        engine_t engines[2] = {start_engine(argv[1], argv[5]), start_engine(argv[1], argv[6])};
        for (engine_t& e : engines) {
            send(e, "uci\n");
            until(e, "uciok");
            send(e, hash + "isready\n");
            until(e, "readyok");
        }
        for (size_t i; (i = shared->next++) < games.size();) {
            const game_t& g = games[i];
            for (int side : {g.white, 1 - g.white}) {
                send(engines[side], "ucinewgame\nisready\n");
                until(engines[side], "readyok");
            }
            std::string position = g.start == "startpos" ? "position startpos" : "position fen " + g.start;
            for (size_t ply = 0; ply < g.moves.size(); ++ply) {
                engine_t& mover = engines[ply % 2 == 0 ? g.white : 1 - g.white];
                send(mover, position + "\n" + go);
                std::istringstream best(until(mover, "bestmove"));
                std::string word, move;
                best >> word >> move;
                ++shared->searches;
                if (move != g.moves[ply]) ++shared->differing;
                position += (ply == 0 ? " moves " : " ") + g.moves[ply];
            }
        }
        for (engine_t& e : engines) {
            send(e, "quit\n");
            waitpid(e.pid, nullptr, 0);
        }
        _exit(0);
    }
    int failed = 0;
    for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        failed += !(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    std::printf("searches %ld bestmoves-differing %ld\n", shared->searches.load(), shared->differing.load());
    return failed ? 1 : 0;
}
