// Process-level sessions: the engine binary is fed whole transcripts on its
// standard input and everything it prints is compared line by line.
// Transcript files (sessions/*.txt) hold sessions opened by "=== name".
// "> text" is an input line ("\t", "\r" and "\xHH" stand for TAB, CR and
// any byte but \x01 and \x02, the harness's pause marks), ">| text" the
// same without its line end, "< text" an expected output line in which "*"
// stands for one word of any characters, "skip N" passes over N output
// lines, "pause" holds the input for a moment, "await" until the next
// bestmove, "args A B" gives the command line, and "exit N" the expected
// status (0 when absent). The banner (VELKOR_BANNER, if set, gives another
// build's) and the processor line come first. In an argument "{defaults}"
// stands for the gene string of the default weights, and "{c}" for the
// character c as often as makes the text behind the argument's first "="
// a whole gene string.
// Battery files (battery/*.txt) have the same form without expected lines;
// "bestmoves N" gives their number of bestmove lines.
#include <gtest/gtest.h>

#include <dirent.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "evaluation/evaluation.h"
#include "protocol/protocol.h"
#include "support/support.h"

// The processor level that the build names in its banner, as the engine's does.
#ifndef VELKOR_BUILD_NOTE
#define VELKOR_BUILD_NOTE ""
#endif

using velkor::test::AWAIT_BESTMOVE;
using velkor::test::PAUSE;
using velkor::test::run_engine_process;
using velkor::test::split_lines;

namespace {

struct session_t {
    std::string file, name, input;
    std::vector<std::string> expected;  // a null byte alone stands for a skipped line
    std::vector<std::string> args;
    int status = 0;
    int bestmoves = 0;
    int line = 0;  // of its "===" header, which names make repin's report of it
};

const std::string SKIPPED(1, '\0');

std::string unescape(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == 't' || text[i + 1] == 'r'))
            out += text[++i] == 't' ? '\t' : '\r';
        else if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x')
            out += char(std::stoi(text.substr(i + 2, 2), nullptr, 16)), i += 3;
        else
            out += text[i];
    return out;
}

// "*" matches a non-empty run of characters other than a blank.
bool matches(const char* pattern, const char* text) {
    if (*pattern == '\0') return *text == '\0';
    if (*pattern == '*') {
        for (const char* t = text; *t && *t != ' '; ++t)
            if (matches(pattern + 1, t + 1)) return true;
        return false;
    }
    return *pattern == *text && matches(pattern + 1, text + 1);
}

// An argument with its gene strings written out (see the head of the file).
std::string gene_argument(std::string word) {
    if (size_t at = word.find("{defaults}"); at != std::string::npos) {
        const auto kept = velkor::genes;
        velkor::genes = velkor::DEFAULT_GENES;
        word.replace(at, 10, velkor::gene_string());
        velkor::genes = kept;
    }
    const size_t at = word.find('{'), value = word.find('=');
    if (at == std::string::npos || value == std::string::npos || word.compare(at + 2, 1, "}") != 0) return word;
    const size_t length = velkor::GENE_SIZE * velkor::GENE_NUMBER, others = word.size() - value - 1 - 3;
    return word.substr(0, at) + std::string(length > others ? length - others : 0, word[at + 1]) + word.substr(at + 3);
}

std::vector<session_t> load_sessions(const std::string& folder) {
    std::vector<session_t> sessions;
    const std::string dir = VELKOR_TEST_DATA "/../protocol/" + folder;
    std::vector<std::string> files;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* e = readdir(d))
            if (std::string(e->d_name).ends_with(".txt")) files.push_back(e->d_name);
        closedir(d);
    }
    std::sort(files.begin(), files.end());
    // Another build's banner (the Windows one) comes from the environment;
    // a build for another processor level names it after the engine's name.
    const std::string own_banner = std::string(velkor::ENGINE_NAME) + VELKOR_BUILD_NOTE + " ('quit' to exit)";
    const char* banner = getenv("VELKOR_BANNER");
    for (const std::string& file : files) {
        std::ifstream in(dir + "/" + file);
        int number = 0;
        for (std::string line; std::getline(in, line);) {
            ++number;
            if (line.starts_with("=== ")) {
                sessions.push_back({file, line.substr(4), "", {}, {}, 0, 0, number});
                sessions.back().expected = {banner ? banner : own_banner,
                                            "info debug Support of popcnt instruction : *"};
            } else if (sessions.empty() || line.empty() || line[0] == '#') {
                continue;
            } else if (line.starts_with(">|")) {
                sessions.back().input += unescape(line.substr(std::min<size_t>(3, line.size())));
            } else if (line.starts_with(">")) {
                sessions.back().input += unescape(line.size() > 1 ? line.substr(2) : "") + "\n";
            } else if (line == "pause") {
                sessions.back().input += velkor::test::PAUSE;
            } else if (line == "await") {
                sessions.back().input += velkor::test::AWAIT_BESTMOVE;
            } else if (line.starts_with("<")) {
                sessions.back().expected.push_back(unescape(line.size() > 1 ? line.substr(2) : ""));
            } else if (line.starts_with("skip ")) {
                const size_t n = std::stoul(line.substr(5));
                sessions.back().expected.insert(sessions.back().expected.end(), n, SKIPPED);
            } else if (line.starts_with("args ")) {
                std::istringstream words(line.substr(5));
                for (std::string word; words >> word;) sessions.back().args.push_back(gene_argument(word));
            } else if (line.starts_with("exit ")) {
                sessions.back().status = std::stoi(line.substr(5));
            } else if (line.starts_with("bestmoves ")) {
                sessions.back().bestmoves = std::stoi(line.substr(10));
            }
        }
    }
    return sessions;
}

void expect_output(const std::vector<std::string>& expected, const std::string& out, const std::string& where) {
    const auto lines = split_lines(out);
    for (size_t i = 0; i < std::max(expected.size(), lines.size()); ++i) {
        const std::string want = i < expected.size() ? expected[i] : "<nothing>";
        const std::string got = i < lines.size() ? lines[i] : "<nothing>";
        if (want == SKIPPED && i < lines.size()) continue;
        if (!matches(want.c_str(), got.c_str())) {
            ADD_FAILURE() << where << ", line " << i + 1 << "\n  expected: " << want << "\n  got:      " << got;
            return;
        }
    }
}

std::vector<std::string> lines_starting(const std::string& out, const std::string& prefix) {
    std::vector<std::string> found;
    for (const std::string& line : split_lines(out))
        if (line.starts_with(prefix)) found.push_back(line);
    return found;
}

}  // namespace

// Every session ends with its status and says nothing on standard error; a
// transcript prints its lines, a battery session its number of bestmoves.
// For make repin, what the engine printed goes to FOLDER/FILE/LINE.
void run_sessions(const std::string& folder, size_t at_least) {
    const auto sessions = load_sessions(folder);
    ASSERT_GT(sessions.size(), at_least);
    for (const session_t& s : sessions) {
        const auto result = run_engine_process(s.input, s.args);
        const std::string where = s.file + ": " + s.name;
        EXPECT_FALSE(result.timed_out) << where;
        EXPECT_EQ(result.status, s.status) << where << "\n" << result.err.substr(0, 2000);
        EXPECT_EQ(result.err, "") << where;
        velkor::test::report(folder + "/" + s.file + "/" + std::to_string(s.line), result.out);
        if (folder == "battery")
            EXPECT_EQ(lines_starting(result.out, "bestmove ").size(), size_t(s.bestmoves)) << where;
        else
            expect_output(s.expected, result.out, where);
    }
}

TEST(Sessions, Transcripts) { run_sessions("sessions", 20); }
TEST(Sessions, Battery) { run_sessions("battery", 10); }

#if !defined(__SANITIZE_ADDRESS__)
// Under tight memory: no room for the attack tables ends the engine with one
// line and status 1; no room for the hash table halves its size, a line for
// each failure, until one fits. Once the engine has printed anything, every
// limit ends in one of these. (Below some limit the program cannot even be
// loaded; nothing of it runs then.)
TEST(Sessions, TightMemory) {
    int refused = 0, halved = 0;
    for (size_t mb = 2; mb <= 160; mb += mb < 16 ? 1 : 8) {
        const auto r = run_engine_process("isready\n", {}, 30, mb << 20);
        if (r.out.empty()) continue;
        const auto lines = split_lines(r.out);
        ASSERT_TRUE(r.status == 0 || r.status == 1) << mb << " MiB: " << r.status << "\n" << r.out;
        if (r.status == 1) {
            ASSERT_EQ(lines.size(), 3u) << r.out;
            EXPECT_EQ(lines[2], "info string Cannot build the attack tables");
            ++refused;
            continue;
        }
        EXPECT_EQ(lines.back(), "readyok");
        int size = 128;
        size_t i = 2;
        for (; lines[i].ends_with(": failure"); ++i, size /= 2)
            EXPECT_EQ(lines[i],
                      "info debug Creation of Transposition Table (" + std::to_string(size) + " MB) : failure");
        EXPECT_EQ(lines[i], "info debug Creation of Transposition Table (" + std::to_string(size) + " MB) : success");
        if (size < 128) ++halved;
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(halved, 0);
}
#endif

// Searches: no test here depends on how fast the machine is.
// A fixed time: reports with a lower bound while an iteration runs, and one answer.
TEST(Sessions, MoveTime) {
    const auto r = run_engine_process("position startpos moves e2e4\ngo movetime 400\n");
    ASSERT_EQ(r.status, 0);
    const auto best = lines_starting(r.out, "bestmove ");
    ASSERT_EQ(best.size(), 1u);
    EXPECT_EQ(best[0].size(), 13u) << best[0];
    EXPECT_NE(r.out.find(" lowerbound pv "), std::string::npos);
}

// A waiting line ends the search: the bestmove comes first, then the line's answer.
TEST(Sessions, StopAndIsreadyDuringInfinite) {
    for (const char* line : {"stop\nisready\n", "isready\n"}) {
        const auto lines = split_lines(run_engine_process(std::string("go infinite\n") + PAUSE + line).out);
        ASSERT_GE(lines.size(), 5u);
        EXPECT_EQ(lines[lines.size() - 3].substr(0, 11), "info score ");
        EXPECT_EQ(lines[lines.size() - 2].substr(0, 9), "bestmove ");
        EXPECT_EQ(lines.back(), "readyok");
    }
}

// The bench signature: the same count in every build and on every run (twice
// in one process here, where the sanitizers do not slow it down).
TEST(Sessions, BenchSignature) {
#if defined(__SANITIZE_ADDRESS__)
    const int runs = 1;
#else
    const int runs = 2;
#endif
    std::string input;
    for (int i = 0; i < runs; ++i) input += "bench\n" + std::string(4, AWAIT_BESTMOVE);
    const auto r = run_engine_process(input, {}, 600);
    ASSERT_FALSE(r.timed_out);
    const auto pin = velkor::test::records("bench.txt").at(0);
    std::string nodes;
    for (const std::string& line : split_lines(r.out))
        if (line.find(" nodes in ") != std::string::npos) nodes = line.substr(0, line.find(' '));
    velkor::test::pinned(pin, 0, nodes, "bench");
    EXPECT_EQ(lines_starting(r.out, nodes + " nodes in ").size(), size_t(runs))
        << r.out.substr(r.out.size() > 300 ? r.out.size() - 300 : 0);
    EXPECT_EQ(lines_starting(r.out, "bestmove ").size(), 4u * runs);
    EXPECT_EQ(lines_starting(r.out, "fen = ").size(), 4u * runs);
}
