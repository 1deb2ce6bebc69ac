#include "qzhid/bundle/bundle.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <sstream>

#include "common/files.h"
#include "qzhid/bundle/evidence.h"
#include "qzhid/bundle/redaction.h"
#include "qzhid/explain/text_report.h"
#include "qzhid/failure.h"
#include "qzhid/options.h"

namespace qzhid {

namespace {

constexpr std::size_t kLongestLog = 4 << 20;  // of a log, the end

bool IsZip(const std::string& file) { return file.ends_with(".zip"); }
bool IsTarGz(const std::string& file) {
  return file.ends_with(".tar.gz") || file.ends_with(".tgz");
}

Failure CannotRead(const std::string& log, const std::string& reason) {
  return {Exit::Failed, "the log " + log + ' ' + reason, "",
          "name a file that you have permission to read"};
}

/// The end of a log, from the beginning of a line on.
std::string ReadEnd(const std::string& log) {
  try {
    const auto [start, text] = tools::ReadFileEnd(log, kLongestLog);
    const std::size_t end = start > 0 ? text.find('\n') : std::string::npos;
    return end == std::string::npos ? text : text.substr(end + 1);
  } catch (const tools::FileError& error) {
    throw CannotRead(log, error.what());
  }
}

std::string ExplainText(const std::string& name, const std::string& log) {
  std::istringstream stream(log);
  try {
    return TextReport({ReadLog(name, "", stream)});
  } catch (const Failure& failure) {
    return std::string(failure.what()) + '\n';
  }
}

/// The name of a log in the bundle, which no other log there has.
std::string LogName(const std::string& log, std::size_t number) {
  constexpr std::size_t kLongest = 60;
  const std::string name = std::filesystem::path(log).filename().string();
  return "logs/" + std::to_string(number) + "-" + name.substr(0, kLongest);
}

std::string Contents(const std::vector<ArchiveEntry>& entries) {
  std::vector<std::vector<std::string>> rows;
  for (const ArchiveEntry& entry : entries) {
    rows.push_back({"  " + entry.name, std::to_string(entry.text.size()) + " bytes"});
  }
  return Table(rows);
}

}  // namespace

void CheckBundle(const BundleOptions& options) {
  if (IsZip(options.file) || IsTarGz(options.file)) return;
  throw Failure(Exit::WrongUse, "the bundle " + options.file + " has no known ending", "",
                "let its name end in .zip or .tar.gz");
}

std::vector<ArchiveEntry> CollectBundle(const BundleOptions& options,
                                        std::vector<ArchiveEntry> known) {
  std::vector<ArchiveEntry> entries = std::move(known);
  for (ArchiveEntry& entry : CollectEvidence()) entries.push_back(std::move(entry));
  std::size_t number = 0;
  for (const std::string& log : options.logs) {
    const std::string name = LogName(log, ++number);
    const std::string text = ReadEnd(log);
    entries.push_back({name, text});
    entries.push_back({name + ".explained.txt", ExplainText(name, text)});
  }
  if (options.hasNames) return entries;
  const Redaction redaction(CollectPrivateNames());
  for (ArchiveEntry& entry : entries) {
    entry = {redaction.Apply(entry.name), redaction.Apply(std::move(entry.text))};
  }
  return entries;
}

void WriteBundle(const BundleOptions& options, const std::vector<ArchiveEntry>& entries) {
  std::cerr << options.file << " is going to hold:\n"
            << Contents(entries)
            << (options.hasNames
                    ? "with serial numbers and the names of users and of this computer\n"
                    : "without serial numbers and the names of users and of this computer\n");
  if (!options.isYes) Confirm("Write it?", "");
  const std::time_t now = std::time(nullptr);
  try {
    tools::WriteFile(options.file,
                     IsZip(options.file) ? MakeZip(entries, now) : MakeTarGz(entries, now));
  } catch (const tools::FileError& error) {
    throw Failure(Exit::Failed, "the bundle " + options.file + ' ' + error.what(), "",
                  "name a file in a folder that you have permission to write");
  }
}

}  // namespace qzhid
