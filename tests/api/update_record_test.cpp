// The record of a whole update, byte for byte: the same on every system.
#include "api/api_test.h"
#include "virtualhub/base/crc32.h"

namespace qzhid::test {
namespace {

/// The reports on the wire. Those of successive requests of one kind and length share a line: the
/// first address, the number of reports out and in, and the checksum of all their bytes, before
/// each report a byte for its direction (0 out, 1 in).
std::vector<std::string> Wire(const virtualhub::Recorder& recorder) {
  struct Group {
    std::string kind;
    std::uint32_t address = 0, out = 0, in = 0, crc = 0;
  };
  std::vector<Group> groups;
  for (const auto& record : recorder.all()) {
    const bool isOut = record.kind == virtualhub::Record::Kind::Output;
    if (!isOut && record.kind != virtualhub::Record::Kind::Input) continue;
    const Bytes& report = record.data;
    if (isOut) {
      const auto kind = Text("%02X%02X +%u", report[1], report[2], report[7] + report[8] * 256u);
      if (groups.empty() || groups.back().kind != kind) {
        groups.push_back({kind, virtualhub::LittleEndian32(report, 3)});
      }
    }
    Group& group = groups.back();
    ++(isOut ? group.out : group.in);
    const std::uint8_t direction = isOut ? 0 : 1;
    group.crc = virtualhub::Crc32(report, virtualhub::Crc32({&direction, 1}, group.crc));
  }
  std::vector<std::string> lines;
  for (const Group& group : groups) {
    lines.push_back(Text("%s @%08X: %u out, %u in, %08X", group.kind.c_str(), group.address,
                         group.out, group.in, group.crc));
  }
  return lines;
}

TEST_F(ApiTest, TheReportsOfAnUpdateAreTheSameOnEverySystem) {
  Open();
  const TempFile image(virtualhub::BuildImage({.version = 0x0210}, 0x10000));
  EXPECT_EQ(1, QZ_UpdateDev(handle, image.path(), nullptr));
  EXPECT_THAT(
      Wire(machine->recorder()),
      ElementsAre(
          "4002 +0 @2E7C0001: 1 out, 0 in, E76C3060", "C009 +20 @00000000: 2 out, 2 in, 8B18F09B",
          "4000 +0 @00000000: 1 out, 0 in, E11635A5", "4002 +0 @2E7C0001: 2 out, 0 in, 760A36B7",
          "C009 +20 @00000000: 1 out, 1 in, 3E6EEE51", "4002 +0 @2E7C0001: 1 out, 0 in, E76C3060",
          "40E8 +0 @00000000: 1 out, 0 in, 64974C84", "4002 +0 @2E7C0003: 1 out, 0 in, 39F7EBF5",
          "C009 +20 @00000000: 1 out, 1 in, 3E6EEE51", "4006 +0 @00000001: 1 out, 0 in, 395E593E",
          "40E8 +0 @00000100: 1 out, 0 in, 990D67D2",
          "40C8 +128 @00000000: 512 out, 0 in, 89BE7C52",
          "C0D8 +128 @00000000: 512 out, 512 in, 04AC221D",
          "40E9 +0 @00000101: 1 out, 0 in, 5BA5F730", "4002 +0 @2E7C0001: 2 out, 0 in, 760A36B7"));
}

}  // namespace
}  // namespace qzhid::test
