#include "platform/linux/report_descriptor.h"

#include <algorithm>
#include <limits>
#include <map>

namespace qzhid::platform {

namespace {

// Item prefixes without their size bits, and the prefix of a long item.
constexpr unsigned kInput = 0x80, kOutput = 0x90;
constexpr unsigned kReportSize = 0x74, kReportId = 0x84, kReportCount = 0x94;
constexpr unsigned kPush = 0xA4, kPop = 0xB4;
constexpr unsigned kLongItem = 0xFE, kSizeBits = 0x03;

constexpr std::size_t kMostPushed = 64;
constexpr std::uint64_t kMostReportBytes = std::numeric_limits<std::uint16_t>::max() - 1;

struct Item {
  unsigned prefix = 0;
  std::uint32_t value = 0;
};

/// Takes items off a descriptor, from the front.
class CItemReader {
 public:
  explicit CItemReader(const std::vector<std::uint8_t>& descriptor) : m_Descriptor(descriptor) {}

  bool IsAtEnd() const { return m_nPosition == m_Descriptor.size(); }

  /// False when the descriptor ends within the item.
  bool Take(Item& item) {
    const unsigned first = TakeByte();
    item = {first & ~kSizeBits, 0};
    if (first == kLongItem) return SkipLongItem();
    const std::size_t size = (first & kSizeBits) == 3 ? 4 : first & kSizeBits;
    if (Left() < size) return false;
    for (std::size_t i = 0; i < size; ++i) item.value |= std::uint32_t{TakeByte()} << (8 * i);
    return true;
  }

 private:
  std::size_t Left() const { return m_Descriptor.size() - m_nPosition; }
  std::uint8_t TakeByte() { return m_Descriptor[m_nPosition++]; }

  bool SkipLongItem() {
    if (Left() < 2) return false;
    const std::size_t size = TakeByte() + std::size_t{1};  // the tag follows
    if (Left() < size) return false;
    m_nPosition += size;
    return true;
  }

  const std::vector<std::uint8_t>& m_Descriptor;
  std::size_t m_nPosition = 0;
};

/// The state that main items refer to.
struct Globals {
  std::uint32_t size = 0, count = 0, id = 0;
};

/// Adds up reports by their ID.
class CReportLengths {
 public:
  /// False when the report is too long.
  bool Add(const Globals& globals) {
    // Both numbers have 32 bits and the sum is bounded, so nothing overflows.
    const std::uint64_t bits = std::uint64_t{globals.size} * globals.count;
    if (bits > kMostReportBytes * 8) return false;
    std::uint64_t& sum = m_Bits[globals.id];
    sum += bits;
    return sum <= kMostReportBytes * 8;
  }

  /// Of the longest report with its ID byte; 0 when there is none.
  std::uint16_t Longest() const {
    std::uint64_t longest = 0;
    for (const auto& [id, bits] : m_Bits) longest = std::max(longest, bits);
    return static_cast<std::uint16_t>(longest == 0 ? 0 : (longest + 7) / 8 + 1);
  }

 private:
  std::map<std::uint32_t, std::uint64_t> m_Bits;
};

/// The items of one descriptor, carried out in order.
class CReportParser {
 public:
  bool Apply(const Item& item) {
    switch (item.prefix) {
      case kInput:
        return m_Inputs.Add(m_Globals);
      case kOutput:
        return m_Outputs.Add(m_Globals);
      case kReportSize:
        m_Globals.size = item.value;
        return true;
      case kReportCount:
        m_Globals.count = item.value;
        return true;
      case kReportId:
        m_Globals.id = item.value;
        return item.value >= 1 && item.value <= 255;
      case kPush:
        m_Pushed.push_back(m_Globals);
        return m_Pushed.size() <= kMostPushed;
      case kPop:
        return Pop();
      default:
        return true;
    }
  }

  HidCaps Caps() const { return {m_Outputs.Longest(), m_Inputs.Longest()}; }

 private:
  bool Pop() {
    if (m_Pushed.empty()) return false;
    m_Globals = m_Pushed.back();
    m_Pushed.pop_back();
    return true;
  }

  Globals m_Globals;
  std::vector<Globals> m_Pushed;
  CReportLengths m_Inputs, m_Outputs;
};

}  // namespace

std::optional<HidCaps> ParseReportDescriptor(const std::vector<std::uint8_t>& descriptor) {
  CItemReader reader(descriptor);
  CReportParser parser;
  while (!reader.IsAtEnd()) {
    Item item;
    if (!reader.Take(item) || !parser.Apply(item)) return std::nullopt;
  }
  return parser.Caps();
}

}  // namespace qzhid::platform
