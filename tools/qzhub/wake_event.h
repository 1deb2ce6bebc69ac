#pragma once

#include "common/descriptor.h"

namespace qzhub {

/// Wakes a thread that waits for descriptors.
class WakeEvent {
 public:
  /// Throws std::system_error when there are no descriptors left.
  WakeEvent();

  /// Readable from Set to Clear.
  int fd() const { return fd_.get(); }

  /// Any thread, or a signal handler.
  void Set() const;
  void Clear() const;

 private:
  tools::Descriptor fd_;
};

}  // namespace qzhub
