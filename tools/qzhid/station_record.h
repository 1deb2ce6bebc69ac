// The records of a station: a JSON line for each unit, and the same as a row of a CSV file.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "qzhid/append_file.h"
#include "qzhid/outcome.h"

namespace qzhid {

/// What is recorded of one unit.
struct UnitRecord {
  using Date = std::chrono::system_clock::time_point;

  Date start{}, end{};
  double seconds = 0;
  std::string bay{};
  std::string portId{};
  std::string location{};
  std::string label{};  ///< empty: none was asked for
  std::string vid{}, pid{};
  std::string from{};  ///< what it ran before: "1.02", "loader", "?"
  std::string runs{};
  std::string image{};  ///< file name
  std::string sha256{};
  Outcome outcome = Outcome::NotStarted;
  int status = 0;  ///< the exit status that belongs to the outcome
  std::string what{};
  std::string next{};
  int retries = 0;
  bool isRecovered = false;  ///< it was in its loader
  std::string program{};     ///< version
  std::string library{};     ///< version, empty where it is not known
  std::string host{};
};

nlohmann::ordered_json ToJson(const UnitRecord& record);
/// The names of the members, and the values of such an object, as CSV without the end of the line.
std::string CsvHeader();
std::string CsvRow(const nlohmann::ordered_json& record);

/// The files. What cannot be written yet is kept.
class StationRecords {
 public:
  using Say = std::function<void(const std::string&)>;

  /// Opens or makes them; `csv` may be empty. A last line that a crash has torn is completed when
  /// it is a whole record, else moved to a file beside it, and `say` is called with what was done.
  /// Throws Failure when a file is not one of records, or cannot be appended to.
  StationRecords(const std::filesystem::path& json, const std::filesystem::path& csv,
                 const Say& say);

  /// Throws Failure unless there is room for so many further records.
  void CheckRoom(std::size_t records);

  void Add(const UnitRecord& record);
  /// Writes what was added, and returns when it is on the disk. Throws Failure.
  void Flush();
  /// The JSON lines that are not written.
  const std::vector<std::string>& Unwritten() const { return files_.front().lines; }

 private:
  struct File {
    std::filesystem::path path;
    std::unique_ptr<AppendFile> file;
    std::vector<std::string> lines{};  ///< to be written
  };

  void OpenJson(const std::filesystem::path& path, const Say& say);
  void OpenCsv(const std::filesystem::path& path, const Say& say);
  void FillCsv(const Say& say);

  std::vector<File> files_;
};

}  // namespace qzhid
