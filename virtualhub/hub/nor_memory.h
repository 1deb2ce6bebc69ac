// A flash memory in which only an erase sets bits.
#pragma once

#include <memory>

#include "virtualhub/base/bytes.h"

namespace virtualhub {

/// Bytes that many memories can start with.
using SharedBytes = std::shared_ptr<const Bytes>;

/// Until its first change it takes no memory of its own: a process that works with one hub often
/// has a machine with many.
class NorMemory {
 public:
  /// An erased memory, except for the `image` at its start, which is not larger than the memory.
  explicit NorMemory(std::size_t size, SharedBytes image = nullptr);

  /// Sets every byte to 0xFF.
  void Erase();

  /// Clears the bits that are 0 in `data`. False, and nothing is written, when the range is not
  /// inside the memory.
  bool Program(std::size_t address, ByteView data);

  /// False when the range is not inside the memory.
  bool Read(std::size_t address, MutableBytes data) const;

  /// The bytes from the start on that may differ from 0xFF.
  ByteView Used() const { return image_ ? ByteView(*image_) : ByteView(own_); }

  /// The whole memory.
  Bytes& Contents();

 private:
  std::size_t size_;
  SharedBytes image_;
  Bytes own_;  ///< the whole memory, or empty
};

}  // namespace virtualhub
