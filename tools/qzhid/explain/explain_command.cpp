#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "common/files.h"
#include "qzhid/commands.h"
#include "qzhid/explain/capture_account.h"
#include "qzhid/explain/html_report.h"
#include "qzhid/explain/json_report.h"
#include "qzhid/explain/text_report.h"
#include "qzhid/host.h"
#include "qzhid/options.h"
#include "qzhid/system.h"
#include "virtualhub/capture/capture_file.h"

namespace qzhid {

namespace {

struct ExplainOptions {
  std::vector<std::string> logs;
  std::string page;
};

/// A log or a capture, as its beginning shows.
LogAccount ReadAccount(const std::string& file, std::istream& stream) {
  constexpr std::size_t kMagic = 4;
  std::string text(kMagic, '\0');
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(stream.gcount()));
  const virtualhub::ByteView bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  if (virtualhub::CaptureFile::IsCapture(bytes)) return ReadCapture(file, bytes, stream);
  return ReadLog(file, text, stream);
}

Failure CannotRead(const std::string& what) {
  return {Exit::Failed, what, "", "name a file that you have permission to read"};
}

LogAccount ReadStandardInput() {
  system::PassBytesUnchanged(system::Stream::Input);
  LogAccount account = ReadAccount("standard input", std::cin);
  tools::CheckStandardInput();
  return account;
}

LogAccount ReadNamedLog(const std::string& file) {
  try {
    if (file == "-") return ReadStandardInput();
    std::ifstream stream = virtualhub::OpenFile(file);
    stream.exceptions(std::ios::badbit);  // a part of a file is not explained
    return ReadAccount(file, stream);
  } catch (const tools::FileError& error) {
    throw CannotRead((file == "-" ? "standard input " : file + ' ') + error.what());
  } catch (const std::ios::failure& error) {
    throw CannotRead(file + " cannot be read: " + error.code().message());
  }
}

void WritePage(const std::string& file, const std::string& page) {
  try {
    tools::WriteFile(file, {reinterpret_cast<const std::uint8_t*>(page.data()), page.size()});
  } catch (const tools::FileError& error) {
    throw Failure(Exit::Failed, "the page " + file + ' ' + error.what(), "",
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
  CLI::App* command = app.add_subcommand("explain", "say what happened, from a log or capture");
  const auto options = std::make_shared<ExplainOptions>();
  command
      ->add_option("FILE", options->logs,
                   "a log of the library or a USB capture; - for standard input")
      ->required();
  command->add_option("--html", options->page, "write it as a page for a browser to this file, too")
      ->option_text("FILE");
  AddExamples(*command, {"qzhid explain update.log", "qzhid explain *.log --html account.html",
                         "qzhid explain - < info.txt", "qzhid explain hub.pcapng"});
  command->callback([&host, options] { RunExplain(host, *options); });
}

}  // namespace qzhid
