// The device handles that hosts hold.
#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "device/hid_dev.h"
#include "platform/process_object.h"

namespace qzhid {

/// A handle is the address of a device object. The table owns the objects, so that a closed or
/// made-up handle is recognised without a look at its memory, and an object in use outlives its
/// closing.
class CHandleTable {
 public:
  static CHandleTable& Instance();

  /// Adds a device and returns its handle.
  void* Add(std::shared_ptr<IDev> dev);
  /// Forgets a handle. Returns its device; null for an invalid handle.
  std::shared_ptr<IDev> Take(void* handle);
  /// The handle's device; null for an invalid handle.
  std::shared_ptr<IDev> Find(void* handle);
  /// The same for handles whose device is exactly a CHidDev; logs "Unknow Dev!!" under `tag` for
  /// others.
  std::shared_ptr<CHidDev> FindHidDev(const char* tag, void* handle);

  /// Held by the thread that forks the process, so that the child finds a whole table.
  std::mutex& ForkLock() { return m_Lock; }

 private:
  friend class platform::CProcessObject<CHandleTable>;

  CHandleTable() = default;

  std::mutex m_Lock;
  std::map<void*, std::shared_ptr<IDev>> m_Devices;
};

}  // namespace qzhid
