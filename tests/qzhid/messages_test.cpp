// The lines that the program and its workers exchange.
#include <gtest/gtest.h>

#include "qzhid/update_messages.h"

namespace qzhid {

static std::string WithoutEnd(const std::string& line) { return line.substr(0, line.size() - 1); }

/// Each line is rejected for its reason; "" when it is not.
template <typename Read>
static void ExpectRejections(Read read,
                             const std::vector<std::pair<std::string, std::string>>& rows) {
  for (const auto& [line, reason] : rows) {
    std::string rejection;
    try {
      read(line);
    } catch (const MessageError& error) {
      rejection = error.what();
    }
    EXPECT_EQ(reason, rejection) << line;
  }
}

TEST(JobMessage, ArrivesAsItWasSentAndIsNoOrderToRetry) {
  const WorkerJob jobs[] = {{},
                            {.library = "/lib/\xFF \n\"x\".so",
                             .isVirtual = true,
                             .isVerbose = true,
                             .log = "C:\\log",
                             .logLevel = 0,
                             .image = "-\xC3\xBC.bin",
                             .location = "PCIROOT(0)#USB(3)",
                             .rules = {true, true, true, true},
                             .staysInLoader = true,
                             .retries = 3,
                             .patience = 60,
                             .isForStation = true}};
  EXPECT_TRUE(IsRetryLine(WithoutEnd(RetryLine())));
  for (const WorkerJob& job : jobs) {
    const std::string line = ToLine(job);
    EXPECT_EQ(line.size() - 1, line.find('\n')) << "it is one line";
    EXPECT_EQ(job, ReadJob(WithoutEnd(line)));
    EXPECT_FALSE(IsRetryLine(WithoutEnd(line)));
  }
}

TEST(JobMessage, IsRejectedUnlessItHasExactlyItsMembers) {
  const std::string good = WithoutEnd(ToLine(WorkerJob{.image = "a"}));
  const auto changed = [&](const std::string& from, const std::string& to) {
    return std::string(good).replace(good.find(from), from.size(), to);
  };
  ExpectRejections(
      ReadJob,
      {{good, ""},
       {"", "it is not a JSON object"},
       {"{}", "it has no \"message\""},
       {R"({"message": 1})", "its member \"message\" is of the wrong type"},
       {RetryLine(), "it is not a job"},
       {changed("\"force\":false,", ""), "it has no \"force\""},
       {changed("\"force\":false", "\"force\":1"), "its member \"force\" is of the wrong type"},
       {changed("\"image\":\"61\"", "\"image\":\"6\""), "its member \"image\" is not a path"},
       {changed("\"log_level\":null", "\"log_level\":-1"),
        "its member \"log_level\" is not a number in its range"},
       {changed("\"retries\":0", "\"retries\":-1"),
        "its member \"retries\" is not a number in its range"},
       {changed("{", "{\"jobs\":1,"), "it has an unknown member \"jobs\""}});
}

TEST(ReportMessage, ArrivesAsItWasSent) {
  const std::pair<WorkerReport, std::string> rows[] = {
      {ReportWaiting{}, R"({"message":"waiting"})"},
      {ReportFound{0x0102}, R"({"message":"found","version":258})"},
      {ReportProgress{40}, R"({"message":"progress","percent":40})"},
      {ReportState{0xFFFF}, R"({"message":"state","version":65535})"},
      {ReportState{}, R"({"message":"state","version":null})"},
      {ReportAway{"a"}, R"({"message":"away","what":"a"})"},
      {ReportFailing{"a"}, R"({"message":"failing","what":"a"})"},
      {ReportDone{true}, R"({"message":"done","written":true})"},
      {ReportFailed{Exit::HubLost, "what\n", "next", {"first", "sec\xFFond"}, true},
       R"({"message":"failed","status":6,"what":"what\n","next":"next","log":["first","sec)"
       "\xEF\xBF\xBD"
       R"(ond"],"replaced":true})"}};
  for (const auto& [report, line] : rows) {
    EXPECT_EQ(line + '\n', ToLine(report));
    EXPECT_EQ(report.index(), ReadReport(line).index()) << line;
    EXPECT_EQ(line + '\n', ToLine(ReadReport(line)));
  }
}

TEST(ReportMessage, IsRejectedUnlessItIsWhole) {
  const std::string range = " is not a number in its range";
  const std::string failed = R"("what":"","next":"","log":)";
  ExpectRejections(
      ReadReport,
      {{R"({"message":"progress","perc)", "it is not a JSON object"},
       {R"({"message":"job"})", "\"job\" is not a kind of report"},
       {R"({"message":"done","written":true,"percent":1})", "it has an unknown member \"percent\""},
       {R"({"message":"state"})", "it has no \"version\""},
       {R"({"message":"state","version":65536})", "its member \"version\"" + range},
       {R"({"message":"progress","percent":101})", "its member \"percent\"" + range},
       {R"({"message":"progress","percent":18446744073709551615})",
        "its member \"percent\"" + range},
       {R"({"message":"failed","status":0,)" + failed + "[]}", "its status is not a failure"},
       {R"({"message":"failed","status":8,)" + failed + "[]}", "its member \"status\"" + range},
       {R"({"message":"failed","status":1,)" + failed + "[1]}",
        "its member \"log\" is of the wrong type"}});
}

}  // namespace qzhid
