// A console's CR LF line ends become LF; every other byte stays.
#include <gtest/gtest.h>

#include <string>

#include "engine/engine.h"

using namespace velkor;

TEST(Input, ConsoleLineEndsLoseTheirCr) {
    const std::pair<std::string, std::string> cases[] = {
        {"uci\r\n", "uci\n"},
        {"\r\nisready\r\n\r\n", "\nisready\n\n"},
        {"a\rb\r\r\n", "a\rb\r\n"},  // a lone CR is kept, as is the CR before another CR
        {"go\r", "go\r"},            // the LF of a CR at the block's end is still to come
        {"", ""},
    };
    for (const auto& [typed, read] : cases) {
        std::string bytes = typed;
        bytes.resize(drop_console_cr(bytes.data(), bytes.size()));
        EXPECT_EQ(bytes, read) << typed;
    }
}
