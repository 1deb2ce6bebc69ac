#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/linux/node_facts.h"
#include "platform/linux/sysfs.h"
#include "platform/process_object.h"

namespace qzhid::platform {

/// The device nodes that this process has seen, and their numbers. A number identifies one device
/// from its arrival to its departure and is never used again. Any thread can call.
class CNodeRegistry {
 public:
  using Node = std::shared_ptr<const NodeFacts>;
  using Reader = Status (*)(const std::string& folder, NodeFacts& node);

  static CNodeRegistry& Instance();

  /// The number of the device that is in the folder now; `read` describes one that is new.
  Status NumberOf(const std::string& folder, Reader read, DevInst& number);

  /// The number of the device that has that entry; 0 when that was not remembered.
  /// Needs no system call, because scans list again and again what they know.
  DevInst NumberOfEntry(const HidrawEntry& entry);
  void RememberEntry(const HidrawEntry& entry, DevInst number);
  /// How many entries are remembered.
  std::size_t EntryCount();

  /// The node with that number if it is present, else null.
  Node Find(DevInst number);

  /// Forgets the nodes that have left, and their entries.
  void DropAbsent();

  /// Held by the thread that forks the process, so that the child finds a whole registry.
  std::mutex& ForkLock() { return m_Lock; }

 private:
  DevInst FindLocked(const std::string& folder, std::uint64_t instance) const;

  std::mutex m_Lock;
  std::map<DevInst, Node> m_Nodes;
  std::map<HidrawEntry, DevInst> m_Entries;
  DevInst m_nLast = 0;
};

}  // namespace qzhid::platform
