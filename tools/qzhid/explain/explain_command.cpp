#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "common/files.h"
#include "qzhid/commands.h"
#include "qzhid/explain/html_report.h"
#include "qzhid/explain/json_report.h"
#include "qzhid/explain/text_report.h"
#include "qzhid/host.h"
#include "qzhid/options.h"
#include "qzhid/system.h"

namespace qzhid {

namespace {

struct ExplainOptions {
  std::vector<std::string> logs;
  std::string page;
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

void WritePage(const std::string& file, const std::string& page) {
  try {
    tools::WriteFile(file, {reinterpret_cast<const std::uint8_t*>(page.data()), page.size()});
  } catch (const tools::FileError& error) {
    throw Failure(Exit::Failed, "the page " + file + " cannot be written: " + error.what(), "",
                  "name a file in a folder that you have permission to write");
  }
}

void RunExplain(Host& host, const ExplainOptions& options) {
  std::vector<LogAccount> accounts;
  for (const std::string& file : options.logs) accounts.push_back(ReadNamedLog(file));
  if (!options.page.empty()) WritePage(options.page, HtmlReport(accounts));
  host.Report(JsonReport(accounts), TextReport(accounts));
  if (CountProblems(accounts) > 0) host.SetStatus(Exit::Failed);
}

}  // namespace

void AddExplainCommand(CLI::App& app, Host& host) {
  CLI::App* command = app.add_subcommand("explain", "say what happened, from the library's log");
  const auto options = std::make_shared<ExplainOptions>();
  command->add_option("FILE", options->logs, "a log of the library; - for standard input")
      ->required();
  command->add_option("--html", options->page, "write it as a page for a browser to this file, too")
      ->option_text("FILE");
  AddExamples(*command, {"qzhid explain update.log", "qzhid explain *.log --html account.html",
                         "qzhid explain - < info.txt"});
  command->callback([&host, options] { RunExplain(host, *options); });
}

}  // namespace qzhid
