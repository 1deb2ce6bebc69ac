// The waits: how often they scan, how long they pause, what they tell.
#include "device/dev.h"
#include "discovery/dev_finder.h"
#include "support/proxy_test.h"

namespace qzhid::test {
namespace {

class WaitedDev final : public IDev {
 public:
  bool IsConnected() override { return connected; }
  bool IsOffline() override { return offline; }
  bool IsPresent(std::uint8_t flag) override { return flag == 0x5A; }

  bool connected = false, offline = false;
};

/// What is waited for happens in the scan of that number; 0 is never.
class CountingFind final : public IDevFinder {
 public:
  CountingFind(WaitedDev& dev, int happensIn) : m_Dev(dev), m_HappensIn(happensIn) {}
  void ScanDevs() override { Count(scans); }
  void ScanDevsEx() override { Count(scansEx); }

  int scans = 0, scansEx = 0;

 private:
  void Count(int& kind) {
    if (++kind == m_HappensIn) m_Dev.connected = m_Dev.offline = true;
  }
  WaitedDev& m_Dev;
  const int m_HappensIn;
};

struct WaitCase {
  std::string wait;  // "Connect", "ConnectEx" or "Unconnect"
  int timeout, happensIn;
  bool isPresent;
  int scans;
  std::size_t pauses;
  bool result;

  friend void PrintTo(const WaitCase& c, std::ostream* out) {
    *out << c.wait << '_' << c.timeout << "s_scan_" << c.happensIn << '_' << c.isPresent;
  }
};

class WaitTest : public ProxyTest, public ::testing::WithParamInterface<WaitCase> {};

TEST_P(WaitTest, ScansEightTimesASecondAndPausesAfterEachFailure) {
  const WaitCase& c = GetParam();
  const bool isUnconnect = c.wait == "Unconnect", isEx = c.wait == "ConnectEx";
  WaitedDev dev;
  dev.SetFlag(c.isPresent ? 0x5A : 0);
  CountingFind find(dev, c.happensIn);
  const auto wait = isUnconnect ? &IDevFinder::WaitDevUnconnect
                    : isEx      ? &IDevFinder::WaitDevConnectEx
                                : &IDevFinder::WaitDevConnect;
  ClearRecords();
  EXPECT_EQ(c.result, (find.*wait)(&dev, c.timeout));
  EXPECT_EQ(isEx ? 0 : c.scans, find.scans);
  EXPECT_EQ(isEx ? c.scans : 0, find.scansEx);
  EXPECT_EQ(std::vector<std::uint32_t>(c.pauses, 128), Pauses());

  const std::string tag = "IDevFinder::WaitDev" + c.wait;
  std::vector<LogLine> lines, notices;
  if (c.wait == "Connect" && c.timeout == 0) {
    lines.push_back({0, tag, "iTimeout is 0\n"});
    if (c.isPresent) lines.push_back({0, tag, "Check is Present\n"});
  }
  lines.push_back({c.result ? 0 : 1, tag,
                   std::string(isUnconnect ? "wait dev unconnect" : "wait dev connect") +
                       (c.result ? " return true.\n" : " return false.\n")});
  EXPECT_EQ(lines, log.lines);
  EXPECT_EQ(std::vector<LogLine>(isUnconnect ? 0 : 1, {2, "", "\n"}), log.prints);
  // The first eight scans of two seconds have one second left, the last eight none.
  for (int scan = 1; c.timeout > 0 && scan <= c.scans; ++scan) {
    notices.push_back(
        {c.timeout - (scan + 7) / 8, "", isUnconnect ? "Wait Dev Unconnect" : "Wait Dev Connect"});
  }
  EXPECT_EQ(notices, log.notices);
}

INSTANTIATE_TEST_SUITE_P(
    , WaitTest,
    ::testing::Values(WaitCase{"Connect", 2, 0, true, 16, 16, false},
                      WaitCase{"Connect", 2, 16, true, 16, 15, true},
                      WaitCase{"Connect", 2, 3, true, 3, 2, true},
                      WaitCase{"Connect", 10, 1, true, 1, 0, true},
                      WaitCase{"Connect", 1, 1, false, 8, 8, false},  // connected, but not present
                      WaitCase{"Connect", 0, 1, true, 1, 0, true},
                      WaitCase{"Connect", 0, 0, true, 1, 0, false},
                      WaitCase{"Connect", 0, 1, false, 1, 0, false},
                      WaitCase{"Connect", -1, 1, true, 0, 0, false},
                      WaitCase{"ConnectEx", 2, 0, true, 16, 16, false},
                      WaitCase{"ConnectEx", 2, 3, true, 3, 2, true},
                      WaitCase{"ConnectEx", 1, 1, false, 8, 8, false},
                      WaitCase{"ConnectEx", 0, 1, true, 0, 0, false},
                      WaitCase{"ConnectEx", -1, 1, true, 0, 0, false},
                      WaitCase{"Unconnect", 2, 0, true, 16, 16, false},
                      WaitCase{"Unconnect", 2, 16, true, 16, 15, true},
                      WaitCase{"Unconnect", 10, 1, false, 1, 0, true},  // presence is not asked
                      WaitCase{"Unconnect", 0, 1, true, 0, 0, false},
                      WaitCase{"Unconnect", -1, 1, true, 0, 0, false}));

TEST_F(ProxyTest, AFinderWithoutAClassFindsAndForgetsNothing) {
  WaitedDev dev;
  IDevFinder nothing;
  EXPECT_EQ(nullptr, nothing.GetClassGuid());
  EXPECT_EQ(0, nothing.DummyRemove(&dev));
  EXPECT_EQ(0, nothing.ForceRemove(&dev));
}

}  // namespace
}  // namespace qzhid::test
