// The smaller jobs with one fault, wherever it may strike.
#include "discovery/hid_find.h"
#include "fault_sweep.h"
#include "flow/universal_flow.h"

namespace qzhid::test {
namespace {

using virtualhub::World;

bool IsLie(const FaultKind& kind, std::uint16_t) { return kind.isLie; }
bool Always(const World&) { return true; }

class JobSweep : public FaultSweep {
 protected:
  void SweepQuickKinds(const Job& job) {
    for (const FaultKind& kind : kFaultKinds) {
      if (kind.isQuick) Sweep(kFlashStart, job, kind);
    }
  }

  /// A flow's job on a device, as the exports run it.
  static bool RunFlow(void* handle, bool (CUniversalFlow::*job)()) {
    auto* const dev = static_cast<IDev*>(handle);
    CHidFind finder;
    finder.AddDev(dev);
    finder.DummyRemove(dev);
    CUniversalFlow flow(finder, *dev);
    return (flow.*job)();
  }

  static bool AwaitFlash(void* handle) {
    std::uint8_t status = 1;
    for (int polls = 0; polls < 5 && status == 1; ++polls) {
      if (QZ_HidI2CBlockStatus(handle, &status) != 0) return false;
    }
    return true;
  }
  /// Every bridge and GPIO export once, up to the first that fails.
  bool CrossBridges(void* handle) {
    std::uint8_t sent[] = {0xD0, 0xD1, 0xD2, 0xD3}, address[] = {0x12, 0x34};
    m_Room = {};
    return QZ_HidI2CConfig(handle, 0xA0, 2, 1) == 0 &&
           QZ_HidI2CWrite(handle, 0x3412, sent, 4) == 0 &&
           QZ_HidI2CRead(handle, 0x3412, m_Room.data(), 4) == 0 &&
           QZ_HidI2CRead2(handle, address, 2, m_Room.data() + 4, 4) == 0 &&
           QZ_HidI2CBlockEraseFlash(handle) == 0 && AwaitFlash(handle) &&
           QZ_HidI2CBlockWriteFlash(handle, 0x100, sent, 4) == 0 && AwaitFlash(handle) &&
           QZ_Stage_Flash(handle, 0x200, sent, 4) == 0 &&
           QZ_MST_HidI2CBlock(handle, 1, 2, 3, 0x1000, 2, sent, 4) == 0 &&
           QZ_HidGPIOW(handle, 7, 1) == 0 && QZ_HidGPIOR(handle, 7, m_Room.data() + 8, 1) == 0 &&
           QZ_HidSetHubGPIO(handle, 8, 1) == 1;
  }
  bool IsCrossed(World& world) const {
    virtualhub::Hub& hub = world.hub("hub");
    const std::array<std::uint8_t, 9> expected = {0xD0, 0xD1, 0xD2, 0xD3, 0xD0,
                                                  0xD1, 0xD2, 0xD3, 1};
    return m_Room == expected && hub.bridgeFlash().memory()[0x103] == 0xD3 &&
           hub.bridgeFlash().memory()[0x203] == 0xD3 && hub.rawBlock().size() > 4 &&
           hub.gpio()[7] && hub.gpio()[8];
  }

  std::uint16_t m_nVersion = 0;
  std::uint32_t m_nCount = 0, m_nVid = 0, m_nPid = 0;
  std::array<std::uint8_t, 9> m_Room{};
};

TEST_F(JobSweep, Listing) {
  const auto list = [this](auto... filter) {
    HidDevRecord* records = nullptr;
    bool isListed = false;
    if constexpr (sizeof...(filter) == 0) {
      isListed = QZ_ListAllHidDev(&records, &m_nCount) == 1;
    } else {
      isListed = QZ_ListAllHidDevByVIDPID(filter..., &records, &m_nCount) == 1;
    }
    EXPECT_EQ(isListed, records != nullptr);
    QZ_FreeDevList(records);
    return isListed;
  };
  const auto isOne = [this](World&) { return m_nCount == 1; };
  SweepQuickKinds({"list", Job::Opens::Itself, [&](void*) { return list(); }, isOne, IsLie});
  SweepQuickKinds({"list by ids", Job::Opens::Itself, [&](void*) { return list(0x2E7Cu, 0x0818u); },
                   isOne, IsLie});
}

TEST_F(JobSweep, Opening) {
  SweepQuickKinds({"list, open and close", Job::Opens::Itself,
                   [this](void*) {
                     void* const handle = OpenHub(machine());
                     QZ_CloseDev(handle);
                     return handle != nullptr;
                   },
                   Always, IsLie});
}

TEST_F(JobSweep, Versions) {
  const auto isOld = [this](World&) { return m_nVersion == 0x0102; };
  const auto isNew = [this](World&) { return m_nVersion == 0x0210; };
  const auto areIds = [this](World&) { return m_nVid == 0x2E7C && m_nPid == 0x0818; };
  SweepQuickKinds({"read the hub's version", Job::Opens::AndCloses,
                   [this](void* handle) { return QZ_ReadDevVersion(handle, &m_nVersion) == 1; },
                   isOld, IsLie});
  SweepQuickKinds(
      {"read the file's version", Job::Opens::AndCloses,
       [this](void* handle) { return QZ_ReadBinVersion(handle, path(), &m_nVersion) == 1; }, isNew,
       IsLie});
  SweepQuickKinds({"read the file's ids", Job::Opens::Itself,
                   [this](void*) { return QZ_GetHidBinFileVIDPID(path(), &m_nVid, &m_nPid) == 1; },
                   areIds, IsLie});
  SweepQuickKinds({"read the hub's ids", Job::Opens::AndCloses,
                   [this](void*) {
                     return QZ_GetHubVIDPIDFromHidDevice(machine().HidInstance("hub"), &m_nVid,
                                                         &m_nPid) == 1;
                   },
                   areIds, IsLie});
}

TEST_F(JobSweep, UpdatingAgainOnTheSameHandle) {
  SweepQuickKinds({"update, if need be twice", Job::Opens::AndCloses,
                   [this](void* handle) { return Update(handle) || Update(handle); },
                   [this](World& world) { return Runs(world, image); }, IsLie});
}

TEST_F(JobSweep, Bridges) {
  SweepQuickKinds({"bridges", Job::Opens::ForIt, [this](void* dev) { return CrossBridges(dev); },
                   [this](World& world) { return IsCrossed(world); }, IsLie});
}

// Jobs that no export offers yet.
TEST_F(JobSweep, EraseAndReset) {
  const auto isErased = [](World& world) {
    const auto flash = world.hub("hub").bank(0).contents();
    return std::all_of(flash.begin(), flash.end(), [](auto byte) { return byte == 0xFF; });
  };
  // A hub that does not come back is reported as erased.
  SweepQuickKinds({"erase", Job::Opens::ForFlow,
                   [](void* dev) { return RunFlow(dev, &CUniversalFlow::DevErase); }, isErased,
                   [](const FaultKind&, std::uint16_t) { return true; }});
  SweepQuickKinds({"reset", Job::Opens::ForFlow,
                   [](void* dev) { return RunFlow(dev, &CUniversalFlow::ResetDeviceonly); }, Always,
                   IsLie});
}

}  // namespace
}  // namespace qzhid::test
