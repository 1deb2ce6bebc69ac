#include "qzhid/progress.h"

#include <gtest/gtest.h>

#include <regex>

namespace qzhid {

TEST(ProgressTest, APercentageBelongsToAPhase) {
  for (const std::string text :
       {"preparing, 0 %", "preparing, 19 %", "erasing, 20 %", "erasing, 29 %", "writing, 30 %",
        "writing, 69 %", "checking, 70 %", "checking, 89 %", "starting, 90 %", "starting, 99 %",
        "done, 100 %"}) {
    Progress progress(1);
    progress.Take(std::stoi(text.substr(text.find(' '))));
    EXPECT_EQ(text, progress.Text());
  }
}

TEST(ProgressTest, EachTenPercentAreWorthALineAndNothingGoesBack) {
  Progress progress(1);
  std::vector<std::int32_t> lines;
  for (const std::int32_t percent : {0, 0, 39, 40, 30, 41, 50, 0}) {
    if (progress.Take(percent)) lines.push_back(percent);
  }
  EXPECT_EQ((std::vector<std::int32_t>{0, 40, 50}), lines);
  EXPECT_EQ("writing, 50 %", progress.Text());
}

TEST(ProgressTest, TheBarFitsTheTerminalWithColoursOrWithout) {
  Progress progress(1);
  progress.Take(50);
  const std::pair<std::size_t, const char*> rows[] = {
      {80, "hub 5 [###############...............]  50 %  writing  "},
      {40, "hub 5 [#######.......]  50 %  writing  "},
      {36, "hub 5 [#####.....]  50 %  writing  "},
      {35, "hub 5   50 %  writing  "},  // no room for a bar
      {11, "hub 5   50"}};              // the last column stays free
  for (const auto& [columns, text] : rows) {
    EXPECT_EQ(text, progress.Bar("hub 5 ", columns, false)) << columns;
    const std::string bar = progress.Bar("hub 5 ", columns, true);
    EXPECT_EQ(text, std::regex_replace(bar, std::regex("\x1b\\[[0-9]*m"), "")) << columns;
  }
}

}  // namespace qzhid
