#include "qzhid/host.h"

#include <cstdlib>
#include <fstream>
#include <iostream>

#include "qzhid/system.h"

namespace qzhid {

namespace {

constexpr std::size_t kShownFailures = 5;
constexpr int kFailuresOnly = 3;

void Print(const nlohmann::ordered_json& object) {
  std::cout << object.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

}  // namespace

Host::~Host() {
  if (temporary_.empty()) return;
  // Windows removes no open file, and the library keeps its log open: what stays is one short file.
  library_->ConfigLog(0, kFailuresOnly);
  std::error_code error;
  std::filesystem::remove_all(temporary_, error);
}

const Library& Host::Api() {
  if (!library_) {
    library_ = LoadLibrary(options_.libraryFile.empty()
                               ? system::LibraryFiles(system::ProgramFolder(), options_.isVirtual)
                               : std::vector<std::string>{options_.libraryFile});
    StartLog();
  }
  return *library_;
}

void Host::StartLog() {
  int level = options_.logLevel;
  if (!options_.log.empty()) {
    logFile_ = std::filesystem::absolute(options_.log);
  } else if (options_.isVerbose) {
    temporary_ = system::MakePrivateFolder();
    if (!temporary_.empty()) logFile_ = temporary_ / "log.txt";
    level = kFailuresOnly;
  }
  if (logFile_.empty()) {
    library_->ConfigLog(0, kFailuresOnly);
    return;
  }
  if (library_->SetLogPath(logFile_.string().c_str()) == 0) {
    throw Failure(Exit::Failed, "the log " + logFile_.string() + " cannot be written", "",
                  "name a file in a folder that you may write");
  }
  library_->ConfigLog(1, level);
}

void Host::Report(const nlohmann::ordered_json& object, const std::string& text) const {
  if (options_.isJson) {
    Print(object);
  } else if (!options_.isQuiet) {
    std::cout << text;
  }
  std::cout.flush();
  if (!std::cout) throw Failure(Exit::Failed, "the result cannot be written", "", "free its disk");
}

int Host::Report(const Failure& failure) {
  const int status = static_cast<int>(failure.Status());
  const bool isRed = IsColourful();
  std::cerr << (isRed ? "\x1b[31mqzhid:\x1b[0m " : "qzhid: ");
  if (!failure.Hub().empty()) std::cerr << "hub " << failure.Hub() << ": ";
  std::cerr << failure.what() << "; " << failure.Next() << '\n';
  if (options_.isVerbose) {
    for (const std::string& line : LastFailures()) std::cerr << "  log: " << line << '\n';
  }
  if (options_.isJson) {
    Print({{"error",
            {{"status", status},
             {"what", failure.what()},
             {"hub", failure.Hub()},
             {"next", failure.Next()}}}});
  }
  return status;
}

bool Host::IsColourful() const {
  const char* unwanted = std::getenv("NO_COLOR");
  return !options_.isPlain && (unwanted == nullptr || *unwanted == '\0') &&
         system::IsTerminal(system::Stream::Errors);
}

std::vector<std::string> Host::LastFailures() const {
  // Lines carry no level: a log that was asked for at a lower level shows its last lines of any.
  std::vector<std::string> lines;
  std::ifstream file(logFile_);
  for (std::string line; std::getline(file, line);) {
    if (!line.empty()) lines.push_back(line);
  }
  if (lines.size() > kShownFailures) {
    lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(kShownFailures));
  }
  return lines;
}

}  // namespace qzhid
