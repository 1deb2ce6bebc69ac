#pragma once

#include <optional>

#include "virtualhub/base/bytes.h"

namespace qzhub {

/// Cuts a stream of bytes into messages.
class MessageStream {
 public:
  /// Takes bytes as they arrive, in pieces of any size. `size` says how long the message is that
  /// bytes begin with, 0 if that takes more of them, none if it is invalid; each whole message goes
  /// to `take`. False after an invalid message, and when `take` returned false.
  template <typename Size, typename Take>
  bool Receive(virtualhub::ByteView bytes, const Size& size, const Take& take) {
    virtualhub::Append(received_, bytes);
    virtualhub::ByteView rest = received_;
    for (;;) {
      const std::optional<std::size_t> length = size(rest);
      if (!length) return false;
      if (*length == 0 || rest.size() < *length) break;
      if (!take(rest.first(*length))) return false;
      rest = rest.subspan(*length);
    }
    received_.erase(received_.begin(), received_.end() - static_cast<std::ptrdiff_t>(rest.size()));
    return true;
  }

 private:
  virtualhub::Bytes received_;
};

}  // namespace qzhub
