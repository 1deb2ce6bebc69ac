// Waits: how often they scan, how long they pause, what they report.
#include "device/dev.h"
#include "discovery/dev_finder.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

/// A device that becomes connected and offline in the scan of that number (0 is never), and the
/// finder that is to find it. Its scans are noted as 's', those of the other kind as 'x'.
struct WaitedDev final : IDev, IDevFinder {
  bool IsConnected() override { return happensIn != 0 && scans.size() >= happensIn; }
  bool IsOffline() override { return IsConnected(); }
  bool IsPresent(std::uint8_t flag) override { return flag == 0x5A; }
  void ScanDevs() override { scans += 's'; }
  void ScanDevsEx() override { scans += 'x'; }

  std::size_t happensIn = 0;
  std::string scans;
};

using WaitTest = LayerTest;

TEST_F(WaitTest, AWaitScansEightTimesASecondAndPausesAfterEachScanThatFindsNothing) {
  const std::tuple<std::string, int, std::size_t, bool, std::size_t, bool> cases[] = {
      // the wait, its time-out, the scan in which it happens, presence; the scans, the result
      {"Connect", 2, 0, true, 16, false},   {"Connect", 2, 16, true, 16, true},
      {"Connect", 10, 1, true, 1, true},    {"Connect", 1, 1, false, 8, false},
      {"Connect", 0, 1, true, 1, true},     {"Connect", 0, 0, true, 1, false},
      {"Connect", 0, 1, false, 1, false},   {"Connect", -1, 1, true, 0, false},
      {"ConnectEx", 2, 3, true, 3, true},   {"ConnectEx", 1, 1, false, 8, false},
      {"ConnectEx", 0, 1, true, 0, false},  {"Unconnect", 2, 0, true, 16, false},
      {"Unconnect", 2, 16, true, 16, true}, {"Unconnect", 10, 1, false, 1, true},
      {"Unconnect", 0, 1, true, 0, false},  {"Unconnect", -1, 1, true, 0, false}};
  for (const auto& [kind, timeout, happensIn, isPresent, scans, result] : cases) {
    SCOPED_TRACE(kind + std::to_string(timeout) + " " + std::to_string(happensIn));
    const bool isUnconnect = kind == "Unconnect", isEx = kind == "ConnectEx";
    WaitedDev dev;
    dev.happensIn = happensIn;
    dev.SetFlag(isPresent ? 0x5A : 0);
    ClearRecords();
    EXPECT_EQ(result, isUnconnect ? dev.WaitDevUnconnect(&dev, timeout)
                      : isEx      ? dev.WaitDevConnectEx(&dev, timeout)
                                  : dev.WaitDevConnect(&dev, timeout));
    EXPECT_EQ(std::string(scans, isEx ? 'x' : 's'), dev.scans);
    const std::size_t pauses = timeout > 0 ? scans - (result ? 1 : 0) : 0;
    EXPECT_EQ(std::vector<std::uint32_t>(pauses, 128), Pauses());

    std::vector<std::pair<int, std::string>> lines;
    if (kind == "Connect" && timeout == 0) {
      lines.emplace_back(0, "iTimeout is 0\n");
      if (isPresent) lines.emplace_back(0, "Check is Present\n");
    }
    lines.emplace_back(result ? 0 : 1,
                       std::string(isUnconnect ? "wait dev unconnect" : "wait dev connect") +
                           (result ? " return true.\n" : " return false.\n"));
    EXPECT_EQ(LinesOf("IDevFinder::WaitDev" + kind, lines), Logged());
    EXPECT_EQ(std::vector<LogLine>(isUnconnect ? 0 : 1, {2, "", "\n"}), log.prints);
    // The first eight scans of two seconds have one second left, the last eight none.
    std::vector<LogLine> notices;
    for (int scan = 1; timeout > 0 && scan <= static_cast<int>(scans); ++scan) {
      notices.push_back(
          {timeout - (scan + 7) / 8, "", isUnconnect ? "Wait Dev Unconnect" : "Wait Dev Connect"});
    }
    EXPECT_EQ(notices, log.notices);
  }
}

}  // namespace
}  // namespace qzhid::test
