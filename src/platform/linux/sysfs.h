// Reading sysfs, the kernel's tree of devices.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "platform/system/linux/system_call.h"

namespace qzhid::platform {

/// The folder of one kernel object. Everything that is read comes from that object: once it is
/// gone, nothing can be read any more, even when another object has the path.
class CSysfsFolder {
 public:
  /// Empty when there is no such folder. `shortage` becomes a failure with the system's code when
  /// the folder, or later an attribute, cannot be read because descriptors or memory have run out:
  /// what was not read may be there all the same.
  CSysfsFolder(const std::string& path, Status& shortage);

  explicit operator bool() const { return static_cast<bool>(m_Folder); }

  /// The number of the object, see InstanceOf; 0 when empty.
  std::uint64_t Instance() const { return m_nInstance; }

  /// The text of an attribute, without the line break at its end.
  std::optional<std::string> Read(const char* attribute) const;

 private:
  void NoteShortage() const;

  CFileHandle m_Folder;
  std::uint64_t m_nInstance = 0;
  Status& m_Shortage;
};

/// A number that no other object under the same path has, earlier or later; 0 when there is none
/// now.
std::uint64_t InstanceOf(const std::string& path);

/// Whether the object with that number still lives under the path.
inline bool IsPresent(const std::string& path, std::uint64_t instance) {
  return instance != 0 && InstanceOf(path) == instance;
}

/// An entry of the class of hidraw devices, which is there as long as its device. No other entry
/// with that path has its number, earlier or later.
struct HidrawEntry {
  std::string path;
  std::uint64_t instance = 0;

  bool operator<(const HidrawEntry& other) const {
    return std::tie(path, instance) < std::tie(other.path, other.instance);
  }
};

/// The entries in numeric order. A system without any is a success.
Status ListHidraw(std::vector<HidrawEntry>& entries);

/// The folder of the device; empty when it has left.
std::string DeviceFolder(const HidrawEntry& entry);

/// Reads a text file, at most its first 64 KiB.
std::optional<std::string> ReadTextFile(int folder, const char* path);

}  // namespace qzhid::platform
