// The library as a host program sees it.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "QzHidAPI.h"
#include "vm/guest.h"

namespace qzhid::vm {

/// ASCII text of a record's field.
inline std::string Plain(const QZ_Utf16* text) {
  std::string plain;
  for (; *text != 0; ++text) plain += *text < 0x80 ? static_cast<char>(*text) : '?';
  return plain;
}

inline std::vector<HidDevRecord> List() {
  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  if (QZ_ListAllHidDev(&list, &count) == 0) return {};
  std::vector<HidDevRecord> records(list, list + count);
  QZ_FreeDevList(list);
  return records;
}

/// What the library logs meanwhile.
template <class Task>
std::string LogOf(const Task& task) {
  const std::string file = "/tmp/library-log.txt";
  QZ_SetLogPath(file.c_str());
  QZ_ConfigLog(1, 0);
  const std::size_t begin = ReadFile(file).size();  // there is one file for all the process
  task();
  QZ_ConfigLog(0, 0);
  return ReadFile(file).substr(begin);
}

/// An image file that lives as long as the machine.
inline std::string MakeImage(const std::string& version) {
  std::string file = "/tmp/image-" + version + ".bin";
  RunProgram({"qzhub", "image", "--out", file, "--size", "65536", "--version", version});
  return file;
}

/// A scenario with one hub. `members` go on the hub, `more` beside the devices.
inline std::string HubScenario(const std::string& members = "", const std::string& more = "") {
  return R"({"devices": [{"name": "hub", "port": "1")" + members + "}]" + more + "}";
}

}  // namespace qzhid::vm
