#include "qzhid/station_record.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>

#include "common/files.h"
#include "qzhid/host.h"

namespace qzhid {

namespace {

using Json = nlohmann::ordered_json;
namespace fs = std::filesystem;

// Of the form of a record; it changes when a member is renamed, removed or means something else.
constexpr int kRecordSchema = 1;
constexpr const char* kBeginning = "{\"schema\":";
constexpr std::size_t kLongestRecord = 0x4000;
constexpr std::size_t kReadTail = 0x100000;  // of a file that may be of any size

[[noreturn]] void RejectRecords(const fs::path& file, const std::string& why) {
  throw Failure(Exit::Failed, "the record file " + file.string() + " " + why, "",
                "free some space, or name a file of records or a new one");
}

// As RFC 3339 has it: "2026-11-22T10:21:53.070Z".
std::string DateText(UnitRecord::Date date) {
  using namespace std::chrono;
  const auto time = floor<milliseconds>(date);
  const auto day = floor<days>(time);
  const year_month_day calendar(day);
  const hh_mm_ss clock(time - day);
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
                static_cast<int>(calendar.year()), static_cast<unsigned>(calendar.month()),
                static_cast<unsigned>(calendar.day()), static_cast<int>(clock.hours().count()),
                static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()),
                static_cast<int>(clock.subseconds().count()));
  return text.data();
}

std::string RecordLine(const Json& record) {
  return record.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// A row is one line, whatever a message holds.
std::string Cell(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  if (text.find_first_of("\",") == std::string::npos) return text;
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? "\"\"" : std::string(1, c);
  return quoted + '"';
}

struct Tail : tools::FileEnd {
  bool IsAll() const { return start == 0; }
  std::size_t WholeLines() const { return text.rfind('\n') + 1; }  // npos + 1 is 0
  std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    for (std::size_t at = 0, end = 0; (end = text.find('\n', at)) != std::string::npos;) {
      lines.push_back(text.substr(at, end - at));
      at = end + 1;
    }
    if (!IsAll() && !lines.empty()) lines.erase(lines.begin());  // it may be a part of one
    return lines;
  }
};

Tail ReadTail(const fs::path& path) { return {tools::ReadFileEnd(path, kReadTail)}; }

std::string ReadBeginning(const fs::path& path, std::size_t size) {
  std::ifstream file(path, std::ios::binary);
  std::string text(size, '\0');
  file.read(text.data(), static_cast<std::streamsize>(size));
  text.resize(static_cast<std::size_t>(file.gcount()));
  return text;
}

void MoveAside(const fs::path& path, AppendFile& file, const Tail& tail,
               const StationRecords::Say& say) {
  fs::path aside = path;
  aside += ".torn";
  AppendFile(aside).Append(tail.text.substr(tail.WholeLines()) + '\n');
  file.Cut(tail.start + tail.WholeLines());
  say("the last line of " + path.string() + " was not complete; it is now in " + aside.string());
}

}  // namespace

Json ToJson(const UnitRecord& record) {
  constexpr double kThousand = 1000;
  return {{"schema", kRecordSchema},
          {"start", DateText(record.start)},
          {"end", DateText(record.end)},
          {"seconds", std::round(record.seconds * kThousand) / kThousand},
          {"bay", record.bay},
          {"port_id", record.portId},
          {"location", record.location},
          {"label", OrNull(record.label)},
          {"vid", record.vid},
          {"pid", record.pid},
          {"from", record.from},
          {"runs", record.runs},
          {"image", record.image},
          {"sha256", record.sha256},
          {"outcome", NameOf(record.outcome)},
          {"status", record.status},
          {"what", OrNull(record.what)},
          {"next", OrNull(record.next)},
          {"retries", record.retries},
          {"recovered", record.isRecovered},
          {"program", record.program},
          {"library", OrNull(record.library)},
          {"host", record.host}};
}

std::string CsvHeader() {
  std::string header;
  const Json record = ToJson(UnitRecord{});
  for (const auto& member : record.items()) {
    header += (header.empty() ? "" : ",") + member.key();
  }
  return header;
}

std::string CsvRow(const Json& record) {
  std::string row;
  bool isFirst = true;
  for (const auto& member : record.items()) {
    const Json& value = member.value();
    if (!isFirst) row += ',';
    isFirst = false;
    if (value.is_string()) {
      row += Cell(value.get<std::string>());
    } else if (!value.is_null()) {
      row += RecordLine(value);
    }
  }
  return row;
}

StationRecords::StationRecords(const fs::path& json, const fs::path& csv, const Say& say) {
  OpenJson(json, say);
  if (!csv.empty()) OpenCsv(csv, say);
}

void StationRecords::OpenJson(const fs::path& path, const Say& say) {
  try {
    File& file = files_.emplace_back(File{path, std::make_unique<AppendFile>(path)});
    const std::string beginning = ReadBeginning(path, std::string(kBeginning).size());
    if (!std::string(kBeginning).starts_with(beginning))
      RejectRecords(path, "holds something else");
    const Tail tail = ReadTail(path);
    const std::string last = tail.text.substr(tail.WholeLines());
    if (last.empty()) return;
    if (!Json::parse(last, nullptr, false).is_object()) {
      return MoveAside(path, *file.file, tail, say);
    }
    file.file->Append("\n");
    say("the last line of " + path.string() + " had no end; it has one now");
  } catch (const tools::FileError& error) {
    RejectRecords(path, error.what());
  }
}

void StationRecords::OpenCsv(const fs::path& path, const Say& say) {
  const std::string header = CsvHeader() + '\n';
  try {
    File& file = files_.emplace_back(File{path, std::make_unique<AppendFile>(path)});
    std::string beginning = ReadBeginning(path, header.size());
    if (!header.starts_with(beginning)) RejectRecords(path, "has another header");
    const Tail tail = ReadTail(path);
    if (tail.WholeLines() < tail.text.size()) MoveAside(path, *file.file, tail, say);
    if (beginning != header) file.file->Append(header);
    FillCsv(say);
  } catch (const tools::FileError& error) {
    RejectRecords(path, error.what());
  }
}

// Rows that are missing because the program was ended between the two files.
void StationRecords::FillCsv(const Say& say) {
  const Tail json = ReadTail(files_.front().path), csv = ReadTail(files_.back().path);
  const std::vector<std::string> rows = csv.Lines();
  const bool isEmpty = csv.IsAll() && rows.size() <= 1;
  if (isEmpty && !json.IsAll()) return;
  std::vector<std::string> missing;
  bool isAfter = isEmpty;
  for (const std::string& line : json.Lines()) {
    const Json record = Json::parse(line, nullptr, false);
    if (!record.is_object() || record.size() != ToJson(UnitRecord{}).size()) return;
    const std::string row = CsvRow(record);
    if (isAfter) missing.push_back(row + '\n');
    if (!isEmpty && row == rows.back()) isAfter = true;
  }
  if (missing.empty()) return;
  files_.back().lines = std::move(missing);
  const std::size_t count = files_.back().lines.size();
  Flush();
  say(files_.back().path.string() + " lacked " + std::to_string(count) +
      " of the records; it has them now");
}

void StationRecords::CheckRoom(std::size_t records) {
  for (File& file : files_) {
    try {
      file.file->Reserve(records * kLongestRecord);
    } catch (const tools::FileError& error) {
      RejectRecords(file.path, error.what());
    }
  }
}

void StationRecords::Add(const UnitRecord& record) {
  // Parsed again, so that a row is the same whether it is made now or from the file.
  const std::string line = RecordLine(ToJson(record));
  files_.front().lines.push_back(line + '\n');
  if (files_.size() > 1) files_.back().lines.push_back(CsvRow(Json::parse(line)) + '\n');
}

void StationRecords::Flush() {
  for (File& file : files_) {
    try {
      while (!file.lines.empty()) {
        file.file->Append(file.lines.front());
        file.lines.erase(file.lines.begin());
      }
    } catch (const tools::FileError& error) {
      RejectRecords(file.path, error.what());
    }
  }
}

}  // namespace qzhid
