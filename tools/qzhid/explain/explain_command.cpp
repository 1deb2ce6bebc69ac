#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "qzhid/commands.h"
#include "qzhid/explain/text_report.h"
#include "qzhid/host.h"
#include "qzhid/options.h"
#include "qzhid/system.h"

namespace qzhid {

namespace {

struct ExplainOptions {
  std::vector<std::string> logs;
};

LogAccount ReadNamedLog(const std::string& file) {
  if (file == "-") {
    system::PassBytesUnchanged(system::Stream::Input);
    return ReadLog("standard input", std::cin);
  }
  std::error_code error;
  if (std::filesystem::is_directory(file, error)) {
    throw Failure(Exit::Failed, file + " is a folder", "", "name a log file in it");
  }
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    throw Failure(Exit::Failed, "the log " + file + " cannot be read", "",
                  "name a file that exists and that you have permission to read");
  }
  return ReadLog(file, stream);
}

void RunExplain(Host& host, const ExplainOptions& options) {
  std::vector<LogAccount> accounts;
  for (const std::string& file : options.logs) accounts.push_back(ReadNamedLog(file));
  host.Report(nlohmann::ordered_json::object(), TextReport(accounts));
  if (CountProblems(accounts) > 0) host.SetStatus(Exit::Failed);
}

}  // namespace

void AddExplainCommand(CLI::App& app, Host& host) {
  CLI::App* command = app.add_subcommand("explain", "say what happened, from the library's log");
  const auto options = std::make_shared<ExplainOptions>();
  command->add_option("LOG", options->logs, "a log file; - for standard input")->required();
  AddExamples(*command, {"qzhid explain update.log", "qzhid explain - < info.txt"});
  command->callback([&host, options] { RunExplain(host, *options); });
}

}  // namespace qzhid
