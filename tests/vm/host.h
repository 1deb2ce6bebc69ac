// The library as a host program sees it.
#pragma once

#include "QzHidAPI.h"
#include "vm/guest.h"

namespace qzhid::vm {

inline std::vector<HidDevRecord> List() {
  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  if (QZ_ListAllHidDev(&list, &count) == 0) return {};
  std::vector<HidDevRecord> records(list, list + count);
  QZ_FreeDevList(list);
  return records;
}

/// An image file that lives as long as the virtual machine.
inline std::string MakeImage(const std::string& version) {
  std::string file = "/tmp/image-" + version + ".bin";
  RunProgram("qzhub image --size 65536 --version " + version + " --out " + file);
  return file;
}

/// A scenario with one hub. `members` go on the hub, `more` beside the devices.
inline std::string HubScenario(const std::string& members = "", const std::string& more = "") {
  return R"({"devices": [{"name": "hub", "port": "1")" + members + "}]" + more + "}";
}

}  // namespace qzhid::vm
