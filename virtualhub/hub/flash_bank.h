// One bank of NOR flash, and how it was written.
#pragma once

#include "virtualhub/hub/image.h"
#include "virtualhub/hub/nor_memory.h"

namespace virtualhub {

class FlashBank {
 public:
  /// What, besides the contents, decides whether a bank holds a whole image.
  struct History {
    std::uint32_t writtenTo = 0;   ///< end of the writes without a gap from address 0
    std::uint32_t generation = 0;  ///< higher in the bank that was written last
    bool sessionOpen = false;      ///< written to since the last erase or proper end
    bool cut = false;              ///< a session was cut off since the last erase
  };

  /// An erased bank.
  explicit FlashBank(std::size_t size) : size_(size), memory_(size) {}

  /// A bank to which an image was written that fits into it.
  FlashBank(std::size_t size, const SharedBytes& image, std::uint32_t generation);

  /// Sets every byte to 0xFF and forgets the history, except for the generation.
  void Erase();

  /// Clears the bits that are 0 in `data`. A write that opens a session sets the generation. False,
  /// and nothing is written, when the range is not inside the bank.
  bool Program(std::uint32_t address, ByteView data, std::uint32_t generation);

  /// False when the range is not inside the bank.
  bool Read(std::uint32_t address, MutableBytes data) const { return memory_.Read(address, data); }

  /// Ends an open write session, by a reset to flash code or by cutting it off.
  void EndSession();
  void CutSession();

  /// Whether a whole image is in the bank. With a seal it is whole when length and checksum match;
  /// without one when it was written without a gap up to the end of the identity fields and no
  /// session was cut off.
  bool HoldsCompleteImage();

  /// The identity fields; no value when the bank has never been written as far as they go.
  std::optional<ImageIdentity> Identity() const { return ReadIdentity(memory_.Used()); }

  std::size_t size() const { return size_; }
  ByteView contents() { return memory_.Contents(); }
  const History& history() const { return history_; }

  /// Restores what was saved; `contents` has the bank's size.
  void Restore(ByteView contents, const History& history);

 private:
  std::size_t size_;
  NorMemory memory_;
  History history_;
};

}  // namespace virtualhub
