// The lines that the program and its workers exchange.
#include "qzhid/update_messages.h"

#include <gtest/gtest.h>

namespace qzhid {

namespace {

std::string WithoutEnd(const std::string& line) { return line.substr(0, line.size() - 1); }

// Why a line is rejected; empty when it is not.
template <typename Read>
std::string Rejection(Read read, const std::string& line) {
  try {
    read(line);
    return "";
  } catch (const MessageError& error) {
    return error.what();
  }
}

TEST(JobMessage, ArrivesAsItWasSent) {
  const WorkerJob jobs[] = {{},
                            {.library = "/lib/\xFF \n\"x\".so",
                             .isVirtual = true,
                             .isVerbose = true,
                             .log = "C:\\log",
                             .logLevel = 0,
                             .image = "-\xC3\xBC.bin",
                             .location = "PCIROOT(0)#USB(3)",
                             .isRecovery = true,
                             .isForced = true,
                             .isReinstall = true,
                             .staysInLoader = true}};
  for (const WorkerJob& job : jobs) {
    const std::string line = ToLine(job);
    EXPECT_EQ(line.size() - 1, line.find('\n')) << "it is one line";
    EXPECT_EQ(job, ReadJob(WithoutEnd(line)));
  }
}

TEST(JobMessage, IsRejectedUnlessItHasExactlyItsMembers) {
  const std::string good = WithoutEnd(ToLine(WorkerJob{.image = "a"}));
  const auto changed = [&](const std::string& from, const std::string& to) {
    std::string line = good;
    return line.replace(line.find(from), from.size(), to);
  };
  ASSERT_EQ("", Rejection(ReadJob, good));
  const std::pair<std::string, std::string> rows[] = {
      {"", "it is not a JSON object"},
      {good.substr(0, 40), "it is not a JSON object"},
      {"[]", "it is not a JSON object"},
      {"{}", "it has no \"message\""},
      {R"({"message": 1})", "its member \"message\" is of the wrong type"},
      {R"({"message": "write"})", "it is not a job"},
      {changed("\"force\":false,", ""), "it has no \"force\""},
      {changed("\"force\":false", "\"force\":1"), "its member \"force\" is of the wrong type"},
      {changed("\"image\":\"61\"", "\"image\":\"6\""), "its member \"image\" is not a path"},
      {changed("\"log_level\":null", "\"log_level\":-1"),
       "its member \"log_level\" is not a number in its range"},
      {changed("{", "{\"jobs\":1,"), "it has an unknown member \"jobs\""}};
  for (const auto& [line, reason] : rows) EXPECT_EQ(reason, Rejection(ReadJob, line)) << line;
}

TEST(WriteMessage, IsKnownFromAnyOtherLine) {
  EXPECT_TRUE(IsWriteLine(WithoutEnd(WriteLine())));
  EXPECT_FALSE(IsWriteLine(""));
  EXPECT_FALSE(IsWriteLine(WithoutEnd(ToLine(WorkerJob{}))));
}

TEST(ReportMessage, ArrivesAsItWasSent) {
  const auto arrived = [](const WorkerReport& report) {
    return ReadReport(WithoutEnd(ToLine(report)));
  };
  EXPECT_EQ(0x0210, std::get<ReportBefore>(arrived(ReportBefore{0x0210})).version);
  EXPECT_EQ(std::nullopt, std::get<ReportBefore>(arrived(ReportBefore{})).version);
  EXPECT_TRUE(std::holds_alternative<ReportReady>(arrived(ReportReady{})));
  EXPECT_EQ(40, std::get<ReportProgress>(arrived(ReportProgress{40})).percent);
  EXPECT_EQ(0xFFFF, std::get<ReportAfter>(arrived(ReportAfter{0xFFFF})).version);
  EXPECT_TRUE(std::holds_alternative<ReportDone>(arrived(ReportDone{})));
  const auto failed = std::get<ReportFailed>(
      arrived(ReportFailed{Exit::HubLost, "what\n", "next", {"first", "sec\xFFond"}}));
  EXPECT_EQ(Exit::HubLost, failed.status);
  EXPECT_EQ("what\n", failed.what);
  EXPECT_EQ("next", failed.next);
  EXPECT_EQ((std::vector<std::string>{"first", "sec\uFFFDond"}), failed.log) << "as UTF-8";
}

TEST(ReportMessage, IsRejectedUnlessItIsWhole) {
  const std::pair<std::string, std::string> rows[] = {
      {"half a li", "it is not a JSON object"},
      {R"({"message":"progress","perc)", "it is not a JSON object"},
      {R"({"message":"hello"})", "\"hello\" is not a kind of report"},
      {R"({"message":"job"})", "\"job\" is not a kind of report"},
      {R"({"message":"ready","percent":1})", "it has an unknown member \"percent\""},
      {R"({"message":"before"})", "it has no \"version\""},
      {R"({"message":"before","version":65536})",
       "its member \"version\" is not a number in its range"},
      {R"({"message":"before","version":"1.02"})",
       "its member \"version\" is not a number in its range"},
      {R"({"message":"progress","percent":101})",
       "its member \"percent\" is not a number in its range"},
      {R"({"message":"progress","percent":18446744073709551615})",
       "its member \"percent\" is not a number in its range"},
      {R"({"message":"failed","status":0,"what":"","next":"","log":[]})",
       "its status is not a failure"},
      {R"({"message":"failed","status":7,"what":"","next":"","log":[]})",
       "its member \"status\" is not a number in its range"},
      {R"({"message":"failed","status":1,"what":"","next":"","log":[1]})",
       "its member \"log\" is of the wrong type"}};
  for (const auto& [line, reason] : rows) EXPECT_EQ(reason, Rejection(ReadReport, line)) << line;
}

}  // namespace

}  // namespace qzhid
