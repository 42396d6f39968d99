#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>
#include <string>

#include "protocol/protocol.h"
#include "search/search.h"
#include "support/support.h"

using namespace velkor;

// Each record of go.epd loads its FEN, then reads its go lines; see the head
// of the file.
TEST(Go, Limits) {
    int checked = 0;
    for (const auto& r : test::records("go.epd")) {
        for (size_t i = 1; i < r.size(); ++i, ++checked) {
            test::load(r[0].c_str());
            const std::string at = r[0] + " ; " + r[i];
            ASSERT_EQ(r[i].rfind("limits ", 0), 0u) << "unknown operation " << at;
            snprintf(input_line, sizeof input_line, "%s", r[i].substr(7, r[i].find(" = ") - 7).c_str());
            go_limits();
            std::ostringstream got;
            got << limits.mode << ' ' << limits.depth << ' ' << limits.total_time << ' ' << limits.move_time;
            limits = limits_t{};
            EXPECT_EQ(got.str(), r[i].substr(r[i].find(" = ") + 3)) << at;
        }
    }
    EXPECT_GT(checked, 15);
}
