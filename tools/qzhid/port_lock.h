// One process at a time writes the hub at a port.
#pragma once

#include <memory>
#include <string>

#include "qzhid/failure.h"

namespace qzhid {

class Host;

/// Held by this process while the object lives, unless another one of this computer, of any user,
/// holds it. The system takes it from a process that dies.
class PortLock {
 public:
  /// Tries once.
  explicit PortLock(const std::string& name);
  PortLock(const PortLock&) = delete;
  PortLock& operator=(const PortLock&) = delete;
  ~PortLock();

  bool IsHeld() const { return isHeld_; }

 private:
  struct Data;
  std::unique_ptr<Data> data_;
  bool isHeld_ = false;
};

/// The name of the lock for a hub at that location. Virtual hubs are different ones in each
/// scenario.
std::string LockName(Host& host, const std::string& location);

/// Why a hub whose lock is not free is left alone.
Failure IsBeingWritten(const std::string& hub);

}  // namespace qzhid
