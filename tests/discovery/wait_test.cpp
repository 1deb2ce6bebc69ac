// Waits: how often they scan, how long they pause, what they report.
#include "device/dev.h"
#include "discovery/dev_finder.h"
#include "support/layer_test.h"

namespace qzhid::test {
namespace {

/// A device that becomes connected and offline in the scan of that number (0 is never), and the
/// finder that is to find it. Its scans are noted as 's', those of the other kind as 'x'.
struct WaitedDev final : IDev, IDevFinder {
  explicit WaitedDev(std::size_t scan) : happensIn(scan) {}
  bool IsConnected() override { return happensIn != 0 && scans.size() >= happensIn; }
  bool IsOffline() override { return IsConnected(); }
  bool IsPresent(std::uint8_t flag) override { return flag == 0x5A; }
  void ScanDevs() override { scans += 's'; }
  void ScanDevsEx() override { scans += 'x'; }

  const std::size_t happensIn;
  std::string scans;
};

using WaitTest = LayerTest;

TEST_F(WaitTest, AWaitScansEightTimesASecondAndPausesAfterEachScanThatFindsNothing) {
  struct Case {
    std::string wait;
    int timeout;
    std::size_t happensIn;
    bool isPresent;
    std::size_t scans, pauses;
    bool result;
  };
  for (const Case& c :
       {Case{"Connect", 2, 0, true, 16, 16, false}, Case{"Connect", 2, 16, true, 16, 15, true},
        Case{"Connect", 10, 1, true, 1, 0, true},
        Case{"Connect", 1, 1, false, 8, 8, false},  // connected, but not present
        Case{"Connect", 0, 1, true, 1, 0, true}, Case{"Connect", 0, 0, true, 1, 0, false},
        Case{"Connect", 0, 1, false, 1, 0, false}, Case{"Connect", -1, 1, true, 0, 0, false},
        Case{"ConnectEx", 2, 3, true, 3, 2, true}, Case{"ConnectEx", 1, 1, false, 8, 8, false},
        Case{"ConnectEx", 0, 1, true, 0, 0, false}, Case{"Unconnect", 2, 0, true, 16, 16, false},
        Case{"Unconnect", 2, 16, true, 16, 15, true},
        Case{"Unconnect", 10, 1, false, 1, 0, true},  // presence is not asked
        Case{"Unconnect", 0, 1, true, 0, 0, false}, Case{"Unconnect", -1, 1, true, 0, 0, false}}) {
    SCOPED_TRACE(c.wait + std::to_string(c.timeout) + " " + std::to_string(c.happensIn));
    const bool isUnconnect = c.wait == "Unconnect", isEx = c.wait == "ConnectEx";
    WaitedDev dev(c.happensIn);
    dev.SetFlag(c.isPresent ? 0x5A : 0);
    ClearRecords();
    EXPECT_EQ(c.result, isUnconnect ? dev.WaitDevUnconnect(&dev, c.timeout)
                        : isEx      ? dev.WaitDevConnectEx(&dev, c.timeout)
                                    : dev.WaitDevConnect(&dev, c.timeout));
    EXPECT_EQ(std::string(c.scans, isEx ? 'x' : 's'), dev.scans);
    EXPECT_EQ(std::vector<std::uint32_t>(c.pauses, 128), Pauses());

    const std::string wait = isUnconnect ? "wait dev unconnect" : "wait dev connect";
    std::vector<std::pair<int, std::string>> lines;
    if (c.wait == "Connect" && c.timeout == 0) {
      lines.emplace_back(0, "iTimeout is 0\n");
      if (c.isPresent) lines.emplace_back(0, "Check is Present\n");
    }
    lines.emplace_back(c.result ? 0 : 1,
                       wait + (c.result ? " return true.\n" : " return false.\n"));
    EXPECT_EQ(LinesOf("IDevFinder::WaitDev" + c.wait, lines), Logged());
    EXPECT_EQ(std::vector<LogLine>(isUnconnect ? 0 : 1, {2, "", "\n"}), log.prints);
    // The first eight scans of two seconds have one second left, the last eight none.
    std::vector<LogLine> notices;
    const std::string notice = isUnconnect ? "Wait Dev Unconnect" : "Wait Dev Connect";
    for (int scan = 1; c.timeout > 0 && scan <= static_cast<int>(c.scans); ++scan) {
      notices.push_back({c.timeout - (scan + 7) / 8, "", notice});
    }
    EXPECT_EQ(notices, log.notices);
  }
}

}  // namespace
}  // namespace qzhid::test
