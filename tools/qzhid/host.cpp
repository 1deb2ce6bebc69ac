#include "qzhid/host.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include "common/files.h"
#include "qzhid/system.h"

namespace qzhid {

namespace {

constexpr std::size_t kShownLines = 10;
constexpr std::size_t kLongestTail = 0x10000;  // of a log that may be of any size
constexpr int kFailuresOnly = 3;

// Of the form of all results; it changes when a member is renamed, removed or means something else.
constexpr int kSchema = 1;

std::string TextOf(const nlohmann::ordered_json& object, int indent) {
  nlohmann::ordered_json whole = {{"schema", kSchema}};
  whole.update(object);
  return whole.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace) + '\n';
}

void Print(const nlohmann::ordered_json& object) { std::cout << TextOf(object, 2); }

Failure NoLog(const std::filesystem::path& file) {
  return {Exit::Failed, "the log " + file.string() + " cannot be written", "",
          "name a file in a folder that you have permission to write"};
}

std::string EndOfLog(const std::filesystem::path& log) {
  std::error_code error;
  if (!std::filesystem::exists(log, error)) return "";  // as in most runs
  try {
    return tools::ReadFileEnd(log, kLongestTail).text;
  } catch (const tools::FileError&) {
    return "";
  }
}

}  // namespace

Host::~Host() {
  Release();
  if (temporary_.empty()) return;
  std::error_code error;
  std::filesystem::remove_all(temporary_, error);
}

bool Host::IsVirtual() const {
  return options_.isVirtual ||
         std::filesystem::path(options_.chosenLibrary).parent_path().filename() == "virtual";
}

void Host::Release() {
  if (!library_) return;
  library_->ConfigLog(0, kFailuresOnly);
  system::UnloadLibraryFile(library_->file);
  library_.reset();
}

const std::filesystem::path& Host::Temporary() {
  if (temporary_.empty()) temporary_ = system::MakePrivateFolder();
  return temporary_;
}

const Library& Host::Api() {
  if (!library_) {
    library_ = LoadLibrary(options_.chosenLibrary.empty()
                               ? system::LibraryFiles(system::ProgramFolder(), options_.isVirtual)
                               : std::vector<std::string>{options_.chosenLibrary});
    StartLog();
  }
  return *library_;
}

const PortNames& Host::Names() {
  if (!names_) {
    const std::filesystem::path folder = system::ConfigFolder();
    names_ = folder.empty() ? PortNames() : ReadPortNames(folder / "qzhid" / "ports.conf");
  }
  return *names_;
}

std::vector<ListedIds> Host::FurtherIds() {
  const std::filesystem::path folder = system::LibraryFolder(Api().file);
  return folder.empty() ? std::vector<ListedIds>() : ReadListedIds(folder / "VidPid.ini");
}

void Host::StartLog() {
  const bool isWanted = !isLogOfOthers_ && (!options_.log.empty() || options_.isVerbose);
  std::filesystem::path file;
  if (isWanted && !options_.log.empty()) {
    file = std::filesystem::absolute(options_.log);
  } else if ((isWanted || system::kThreadsStartLog) && !Temporary().empty()) {
    // Also where the library may start to log on its own: not to the folder that it is in.
    file = Temporary() / "log.txt";
  }
  if (!file.empty() && library_->SetLogPath(file.string().c_str()) == 0) throw NoLog(file);
  const int level = options_.logLevel.value_or(options_.isVerbose ? kFailuresOnly : 0);
  library_->ConfigLog(isWanted && !file.empty() ? 1 : 0, level);
  if (!isLogOfOthers_) logFile_ = file;
}

void Host::LeaveLogToOthers() {
  isLogOfOthers_ = true;
  if (options_.log.empty()) return;
  logFile_ = std::filesystem::absolute(options_.log);
  if (!std::ofstream(logFile_, std::ios::binary)) throw NoLog(logFile_);
}

void Host::TakeLog(const std::string& log) {
  if (log.empty()) return;
  std::ifstream part(log, std::ios::binary);
  std::ofstream whole(logFile_, std::ios::binary | std::ios::app);
  if (part.is_open() && part.peek() != std::ifstream::traits_type::eof()) whole << part.rdbuf();
  part.close();
  std::error_code error;
  std::filesystem::remove(log, error);
}

void Host::Report(const nlohmann::ordered_json& object, const std::string& text) const {
  if (options_.isJson) {
    Print(object);
  } else if (!options_.isQuiet) {
    std::cout << text;
  }
  std::cout.flush();
  if (!std::cout)
    throw Failure(Exit::Failed, "the result cannot be written", "", "free some disk space");
}

void Host::Count(const Failure& failure) {
  if (status_ != Exit::Done && status_ != failure.Status()) {
    status_ = Exit::Failed;
  } else {
    status_ = failure.Status();
  }
}

void Host::PrintEvent(const nlohmann::ordered_json& event) const {
  std::cerr << TextOf(event, -1) << std::flush;
}

void Host::Say(const std::string& text) const {
  if (options_.printsEvents) {
    PrintEvent({{"event", "message"}, {"text", text}});
  } else if (!options_.isQuiet) {
    std::cerr << "qzhid: " + text + '\n' << std::flush;
  }
}

void Host::Show(const Failure& failure) {
  Count(failure);
  if (options_.printsEvents) return PrintEvent({{"event", "error"}, {"error", ToJson(failure)}});
  if (failure.Next().empty()) {  // it is what the user wanted
    std::cerr << failure.what() << '\n';
    return;
  }
  const bool isRed = IsColourful();
  std::cerr << (isRed ? "\x1b[31mqzhid:\x1b[0m " : "qzhid: ");
  if (!failure.Hub().empty()) std::cerr << "hub " << failure.Hub() << ": ";
  std::cerr << failure.what() << "; " << failure.Next() << '\n';
  if (!options_.isVerbose) return;
  for (const std::string& line : failure.Log().empty() ? LastLogLines() : failure.Log()) {
    std::cerr << "  log: " << line << '\n';
  }
}

void Host::Report(const Failure& failure) {
  Show(failure);
  if (options_.isJson) Print({{"error", ToJson(failure)}});
}

bool Host::MayMove() const {
  return !options_.isPlain && !options_.printsEvents && system::DrawableTerminal().columns > 0;
}

bool Host::IsColourful() const {
  const char* unwanted = std::getenv("NO_COLOR");
  return MayMove() && (unwanted == nullptr || *unwanted == '\0');
}

std::vector<std::string> Host::LastLogLines() const {
  std::vector<std::string> lines;
  std::istringstream file(EndOfLog(logFile_));
  for (std::string line; std::getline(file, line);) {
    if (!line.empty()) lines.push_back(line);
  }
  if (lines.size() > kShownLines) {
    lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(kShownLines));
  }
  return lines;
}

nlohmann::ordered_json ToJson(const Failure& failure) {
  return {{"status", static_cast<int>(failure.Status())},
          {"what", failure.what()},
          {"hub", failure.Hub()},
          {"next", failure.Next()}};
}

nlohmann::ordered_json OrNull(const std::string& text) {
  return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}

}  // namespace qzhid
