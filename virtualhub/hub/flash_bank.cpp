#include "virtualhub/hub/flash_bank.h"

#include <algorithm>

#include "virtualhub/hub/image.h"

namespace virtualhub {

void FlashBank::Erase() {
  std::fill(contents_.begin(), contents_.end(), std::uint8_t{0xFF});
  history_ = History{.generation = history_.generation};
}

bool FlashBank::Program(std::uint32_t address, ByteView data, std::uint32_t generation) {
  if (!Fits(contents_.size(), address, data.size())) return false;
  for (std::size_t i = 0; i < data.size(); ++i) contents_[address + i] &= data[i];
  if (!history_.sessionOpen) history_.generation = generation;
  history_.sessionOpen = true;
  if (address <= history_.writtenTo) {
    const auto end = static_cast<std::uint32_t>(address + data.size());
    history_.writtenTo = std::max(history_.writtenTo, end);
  }
  return true;
}

bool FlashBank::Read(std::uint32_t address, MutableBytes data) const {
  if (!Fits(contents_.size(), address, data.size())) return false;
  std::copy_n(contents_.begin() + static_cast<std::ptrdiff_t>(address), data.size(), data.begin());
  return true;
}

void FlashBank::EndSession() { history_.sessionOpen = false; }

void FlashBank::CutSession() {
  history_.cut = history_.cut || history_.sessionOpen;
  history_.sessionOpen = false;
}

bool FlashBank::HoldsCompleteImage() const {
  const Seal seal = CheckSeal(contents_);
  if (seal != Seal::None) return seal == Seal::Intact;
  return history_.writtenTo >= kIdentityEnd && !history_.cut;
}

void FlashBank::Restore(ByteView contents, const History& history) {
  contents_.assign(contents.begin(), contents.end());
  history_ = history;
}

}  // namespace virtualhub
