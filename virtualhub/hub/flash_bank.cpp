#include "virtualhub/hub/flash_bank.h"

#include <algorithm>

namespace virtualhub {

FlashBank::FlashBank(std::size_t size, const SharedBytes& image, std::uint32_t generation)
    : size_(size),
      memory_(size, image),
      history_{.writtenTo = static_cast<std::uint32_t>(image->size()), .generation = generation} {}

void FlashBank::Erase() {
  memory_.Erase();
  history_ = History{.generation = history_.generation};
}

bool FlashBank::Program(std::uint32_t address, ByteView data, std::uint32_t generation) {
  if (!memory_.Program(address, data)) return false;
  if (!history_.sessionOpen) history_.generation = generation;
  history_.sessionOpen = true;
  if (address <= history_.writtenTo) {
    const auto end = static_cast<std::uint32_t>(address + data.size());
    history_.writtenTo = std::max(history_.writtenTo, end);
  }
  return true;
}

void FlashBank::EndSession() { history_.sessionOpen = false; }

void FlashBank::CutSession() {
  history_.cut = history_.cut || history_.sessionOpen;
  history_.sessionOpen = false;
}

bool FlashBank::HoldsCompleteImage() {
  const ByteView used = memory_.Used();
  if (used.empty()) return false;
  // Erased bytes after the used ones may belong to an image, but not to one that is whole without.
  const Seal seal = CheckSeal(used) == Seal::Intact ? Seal::Intact : CheckSeal(contents());
  if (seal != Seal::None) return seal == Seal::Intact;
  return history_.writtenTo >= kIdentityEnd && !history_.cut;
}

void FlashBank::Restore(ByteView contents, const History& history) {
  memory_.Contents().assign(contents.begin(), contents.end());
  history_ = history;
}

}  // namespace virtualhub
