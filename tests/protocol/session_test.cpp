// Process-level sessions: the engine binary is fed whole transcripts on its
// standard input and everything it prints is compared line by line.
//
// Transcript files (sessions/*.txt) hold sessions opened by "=== name".
// "> text" is an input line ("\t", "\r" and "\xHH" stand for TAB, CR and
// any byte but \x01 and \x02, the harness's pause marks), ">| text" the
// same without its line end, "< text" an expected output line in which "*"
// stands for one word of any characters, "skip N" passes over N output
// lines, "pause" holds the input for a moment, "await" until the next
// bestmove, "args A B" gives the command line, and "exit N" the expected
// status (0 when absent). The banner and the processor line are expected
// before everything else.
//
// Battery files (battery/*.txt) have the same form without expected lines:
// every session must end cleanly, say nothing on standard error (where the
// sanitizers and valgrind report), and answer every search with one bestmove.
#include <gtest/gtest.h>

#include <dirent.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/support.h"

using velkor::test::run_engine_process;
using velkor::test::split_lines;

namespace {

struct session_t {
    std::string file, name, input;
    std::vector<std::string> expected;  // a null byte alone stands for a skipped line
    std::vector<std::string> args;
    int status = 0;
};

const std::string SKIPPED(1, '\0');

std::string unescape(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size() && (text[i + 1] == 't' || text[i + 1] == 'r')) {
            out += text[++i] == 't' ? '\t' : '\r';
        } else if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x') {
            out += char(std::stoi(text.substr(i + 2, 2), nullptr, 16));
            i += 3;
        } else {
            out += text[i];
        }
    }
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
    for (const std::string& file : files) {
        std::ifstream in(dir + "/" + file);
        for (std::string line; std::getline(in, line);) {
            if (line.starts_with("=== ")) {
                sessions.push_back({file, line.substr(4), "", {}, {}, 0});
                sessions.back().expected = {"Velkor 0.3.0 x64 (popcnt) ('quit' to exit)",
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
                sessions.back().expected.insert(sessions.back().expected.end(), std::stoul(line.substr(5)), SKIPPED);
            } else if (line.starts_with("args ")) {
                std::istringstream words(line.substr(5));
                for (std::string word; words >> word;) sessions.back().args.push_back(word);
            } else if (line.starts_with("exit ")) {
                sessions.back().status = std::stoi(line.substr(5));
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

}  // namespace

TEST(Sessions, Transcripts) {
    const auto sessions = load_sessions("sessions");
    ASSERT_GT(sessions.size(), 20u);
    for (const session_t& s : sessions) {
        const auto result = run_engine_process(s.input, s.args);
        const std::string where = s.file + ": " + s.name;
        EXPECT_FALSE(result.timed_out) << where;
        EXPECT_EQ(result.status, s.status) << where;
        EXPECT_EQ(result.err, "") << where;
        expect_output(s.expected, result.out, where);
    }
}

// The lines of a session that start a search: those that hold "go" and that
// no earlier row of the dispatch takes.
int searches_in(const std::string& input) {
    int searches = 0;
    std::string line;
    for (char c : input + "\n") {
        if (c != '\n') {
            line += c == '\t' ? ' ' : c;
            continue;
        }
        std::istringstream words(line.substr(0, line.find('\0')));  // the engine reads up to a NUL
        std::string folded, word;
        while (words >> word) folded += (folded.empty() ? "" : " ") + word;
        line.clear();
        if (folded == "stop" || folded == "uci" || folded == "isready" || folded == "ucinewgame" ||
            folded.find("setoption") != std::string::npos || folded.find("position startpos") != std::string::npos ||
            folded.find("position fen ") != std::string::npos)
            continue;
        if (folded.find("go") != std::string::npos) ++searches;
        if (folded == "bench") searches += 4;
        if (folded == "quit") break;
    }
    return searches;
}

TEST(Sessions, Battery) {
    const auto sessions = load_sessions("battery");
    ASSERT_GT(sessions.size(), 10u);
    for (const session_t& s : sessions) {
        const auto result = run_engine_process(s.input, s.args, 60);
        const std::string where = s.file + ": " + s.name;
        EXPECT_FALSE(result.timed_out) << where;
        EXPECT_EQ(result.status, s.status) << where << "\n" << result.err.substr(0, 2000);
        EXPECT_EQ(result.err, "") << where;
        size_t bestmoves = 0;
        for (const std::string& line : split_lines(result.out)) bestmoves += line.starts_with("bestmove ");
        EXPECT_EQ(bestmoves, size_t(searches_in(s.input))) << where;
    }
}

TEST(Sessions, EndOfInput) {
    // A last line without a line end is still carried out, then the engine ends as after quit.
    auto r = run_engine_process("isready");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(split_lines(r.out).back(), "readyok");
    r = run_engine_process("");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(split_lines(r.out).size(), 3u);
    // Lines after quit are never read.
    r = run_engine_process("quit\nisready\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out.find("readyok"), std::string::npos);
}

TEST(Sessions, LongLines) {
    const std::string warning = "info buffer Warning: input is too long and will be truncated (max = 8192 bytes)";
    // 8190 bytes pass untouched.
    auto r = run_engine_process(std::string(8190, 'x') + "\n");
    auto lines = split_lines(r.out);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[3], "Unknown command : '" + std::string(8190, 'x') + "'");
    // The 8191st byte brings the warning even though nothing is lost.
    r = run_engine_process(std::string(8191, 'x') + "\nisready\n");
    lines = split_lines(r.out);
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[3], warning);
    EXPECT_EQ(lines[4], "Unknown command : '" + std::string(8191, 'x') + "'");
    EXPECT_EQ(lines[5], "readyok");
    // Longer lines are cut at 8191 bytes; a blank at the cut is dropped.
    r = run_engine_process(std::string(8190, 'y') + " tail that is thrown away\nisready\n");
    lines = split_lines(r.out);
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[4], "Unknown command : '" + std::string(8190, 'y') + "'");
    EXPECT_EQ(lines[5], "readyok");
    // A truncated position command is still carried out with what it kept.
    std::string game = "position startpos moves";
    while (game.size() < 9000) game += " g1f3 g8f6 f3g1 f6g8";
    r = run_engine_process(game + "\nperft 1\n");
    lines = split_lines(r.out);
    ASSERT_GE(lines.size(), 5u);
    EXPECT_EQ(lines[3], warning);
    EXPECT_EQ(lines[4], "info string Illegal move: g8");  // the cut token
    EXPECT_EQ(lines[5].substr(0, 10), "a7a5 a7a6 ");  // 1633 moves played: black to move
}

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
            EXPECT_EQ(lines[i], "info debug Creation of Transposition Table (" + std::to_string(size) + " MB) : failure");
        EXPECT_EQ(lines[i], "info debug Creation of Transposition Table (" + std::to_string(size) + " MB) : success");
        if (size < 128) ++halved;
    }
    EXPECT_GT(refused, 0);
    EXPECT_GT(halved, 0);
}
#endif
