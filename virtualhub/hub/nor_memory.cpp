#include "virtualhub/hub/nor_memory.h"

#include <algorithm>
#include <utility>

namespace virtualhub {

namespace {

constexpr std::uint8_t kErased = 0xFF;

}  // namespace

NorMemory::NorMemory(std::size_t size, SharedBytes image) : size_(size), image_(std::move(image)) {}

void NorMemory::Erase() {
  image_.reset();
  std::fill(own_.begin(), own_.end(), kErased);
}

bool NorMemory::Program(std::size_t address, ByteView data) {
  if (!Fits(size_, address, data.size())) return false;
  Bytes& contents = Contents();
  for (std::size_t i = 0; i < data.size(); ++i) contents[address + i] &= data[i];
  return true;
}

bool NorMemory::Read(std::size_t address, MutableBytes data) const {
  if (!Fits(size_, address, data.size())) return false;
  const ByteView used = Used();
  const ByteView found = used.subspan(std::min(address, used.size()));
  const std::size_t copied = std::min(found.size(), data.size());
  std::copy_n(found.begin(), copied, data.begin());
  std::fill(data.begin() + static_cast<std::ptrdiff_t>(copied), data.end(), kErased);
  return true;
}

Bytes& NorMemory::Contents() {
  if (own_.empty()) {
    own_.reserve(size_);
    const ByteView used = Used();
    own_.assign(used.begin(), used.end());
    own_.resize(size_, kErased);
    image_.reset();
  }
  return own_;
}

}  // namespace virtualhub
