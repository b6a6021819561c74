// Cells of a line, blanks at the ends, small letters.
#include "base/text_parts.h"

#include <gtest/gtest.h>

#include "base/worker_pool.h"

namespace host {
namespace {

using Cells = std::vector<std::string>;

Cells cellsOf(const std::string& line) {
  Cells cells = {"left over"};
  EXPECT_TRUE(trySplitCsv(line, cells)) << line;
  return cells;
}

TEST(SplitCsv, GivesEveryCellWithoutItsBlanks) {
  EXPECT_EQ(cellsOf("a, b ,,c\r"), (Cells{"a", "b", "", "c"}));
  EXPECT_EQ(cellsOf(""), Cells{""});
  EXPECT_EQ(cellsOf(","), (Cells{"", ""}));
}

TEST(SplitCsv, QuotedCellsMayHoldCommasAndQuotes) {
  EXPECT_EQ(cellsOf(R"("a,b",c)"), (Cells{"a,b", "c"}));
  EXPECT_EQ(cellsOf(R"("say ""so""",2)"), (Cells{R"(say "so")", "2"}));
}

TEST(SplitCsv, RefusesAQuotedTextWithoutItsEnd) {
  Cells cells;
  EXPECT_FALSE(trySplitCsv(R"(a,"b)", cells));
}

TEST(TextParts, TrimAndLower) {
  EXPECT_EQ(trimmed(" \t a b\r\n"), "a b");
  EXPECT_EQ(trimmed("  "), "");
  EXPECT_EQ(lowered("FrAmE 7"), "frame 7");
}

TEST(UsableThreads, IsAtLeastOne) {
  EXPECT_GE(usableThreads(), 1);
}

}  // namespace
}  // namespace host
