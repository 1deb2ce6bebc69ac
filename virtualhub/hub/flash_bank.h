// One bank of NOR flash, and what it remembers of how it was written.
#pragma once

#include "virtualhub/base/bytes.h"

namespace virtualhub {

class FlashBank {
 public:
  /// What decides, besides the contents, whether a bank holds a whole image.
  struct History {
    std::uint32_t writtenTo = 0;   ///< end of the gapless run of writes from address 0
    std::uint32_t generation = 0;  ///< the bank written last has the higher one
    bool sessionOpen = false;      ///< written to since the last erase or proper end
    bool cut = false;              ///< a session was cut since the last erase
  };

  /// An erased bank.
  explicit FlashBank(std::size_t size) : contents_(size, 0xFF) {}

  /// Sets every byte to 0xFF and forgets the history, except for the generation.
  void Erase();

  /// Clears the bits that are 0 in `data`. `generation` is taken when this opens a session. False,
  /// and nothing written, when the range leaves the bank.
  bool Program(std::uint32_t address, ByteView data, std::uint32_t generation);

  /// False when the range leaves the bank.
  bool Read(std::uint32_t address, MutableBytes data) const;

  /// Ends an open write session, by a reset to flash code or by whatever cuts it.
  void EndSession();
  void CutSession();

  /// Whether a whole image is in the bank. A sealed one is whole when length and checksum match;
  /// one without seal when it was written gaplessly through all identity fields and no session was
  /// cut.
  bool HoldsCompleteImage() const;

  ByteView contents() const { return contents_; }
  const History& history() const { return history_; }

  /// Puts back what was saved; `contents` has the bank's size.
  void Restore(ByteView contents, const History& history);

 private:
  Bytes contents_;
  History history_;
};

}  // namespace virtualhub
