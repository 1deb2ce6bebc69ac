#include "qzhid/progress.h"

#include <gtest/gtest.h>

#include <regex>

namespace qzhid {

namespace {

TEST(ProgressTest, APercentageBelongsToAPhase) {
  const std::tuple<std::int32_t, Phase, const char*> rows[] = {
      {0, Phase::Preparing, "preparing, 0 %"}, {19, Phase::Preparing, "preparing, 19 %"},
      {20, Phase::Erasing, "erasing, 20 %"},   {29, Phase::Erasing, "erasing, 29 %"},
      {30, Phase::Writing, "writing, 30 %"},   {69, Phase::Writing, "writing, 69 %"},
      {70, Phase::Checking, "checking, 70 %"}, {89, Phase::Checking, "checking, 89 %"},
      {90, Phase::Starting, "starting, 90 %"}, {99, Phase::Starting, "starting, 99 %"},
      {100, Phase::Done, "done, 100 %"}};
  for (const auto& [percent, phase, text] : rows) {
    Progress progress(1);
    progress.Take(percent);
    EXPECT_EQ(phase, progress.CurrentPhase()) << percent;
    EXPECT_EQ(text, progress.Text());
  }
}

TEST(ProgressTest, EachTenPercentAreWorthALineAndNothingGoesBack) {
  Progress progress(1);
  EXPECT_TRUE(progress.Take(0));
  EXPECT_FALSE(progress.Take(0));
  EXPECT_FALSE(progress.Take(39));
  EXPECT_TRUE(progress.Take(40));
  EXPECT_FALSE(progress.Take(30));
  EXPECT_EQ("writing, 40 %", progress.Text());
}

TEST(ProgressTest, TheBarFitsTheTerminal) {
  Progress progress(1);
  progress.Take(50);
  const auto bar = [&](std::size_t columns) {
    return std::regex_replace(progress.Bar("hub 5 ", columns), std::regex("\x1b\\[[0-9]*m"), "");
  };
  EXPECT_EQ("hub 5 [###############...............]  50 %  writing  ", bar(80));
  EXPECT_EQ("hub 5 [#######.......]  50 %  writing  ", bar(40));
  EXPECT_EQ("hub 5   50 %  writing  ", bar(30)) << "no room for a bar";
  EXPECT_EQ("hub 5   50", bar(11)) << "the last column stays free";
}

}  // namespace

}  // namespace qzhid
