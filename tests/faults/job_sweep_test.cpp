// The smaller jobs with one fault, wherever it may strike.
#include "discovery/hid_find.h"
#include "fault_sweep.h"
#include "flow/universal_flow.h"

namespace qzhid::test {
namespace {

bool Always() { return true; }

class JobSweep : public FaultSweep {
 protected:
  void SweepQuickKinds(const Job& job) {
    for (const FaultKind& kind : kFaultKinds) {
      if (kind.isQuick) Sweep(kFlashStart, job, kind);
    }
  }
  /// The same for a job that resets the hub, and again where its numbers stay.
  void SweepResettingJob(const Job& job) {
    SweepQuickKinds(job);
    for (const FaultKind& kind : kFaultKinds) {
      if (ComesBackAsItWas(kind.fault)) Sweep(kSameNumbersStart, job, kind);
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
  bool IsCrossed() const {
    virtualhub::Hub& hub = machine->hub("hub");
    return m_Room == decltype(m_Room){0xD0, 0xD1, 0xD2, 0xD3, 0xD0, 0xD1, 0xD2, 0xD3, 1} &&
           hub.bridgeFlash().memory()[0x103] == 0xD3 && hub.bridgeFlash().memory()[0x203] == 0xD3 &&
           hub.rawBlock().size() > 4 && hub.gpio()[7] && hub.gpio()[8];
  }

  std::uint16_t m_nVersion = 0;
  std::uint32_t m_nCount = 0, m_nVid = 0, m_nPid = 0;
  std::array<std::uint8_t, 9> m_Room{};
};

TEST_F(JobSweep, ListingAndOpeningSurviveAFaultAnywhere) {
  HidDevRecord* records = nullptr;
  const auto take = [&](std::uint8_t result) {
    EXPECT_EQ(result == 1, records != nullptr);
    QZ_FreeDevList(std::exchange(records, nullptr));
    return result == 1;
  };
  const auto isOne = [this] { return std::exchange(m_nCount, 0) == 1; };
  SweepQuickKinds({"list", Job::Opens::Itself,
                   [&](void*) { return take(QZ_ListAllHidDev(&records, &m_nCount)); }, isOne});
  SweepQuickKinds(
      {"list by ids", Job::Opens::Itself,
       [&](void*) { return take(QZ_ListAllHidDevByVIDPID(0x2E7C, 0x0818, &records, &m_nCount)); },
       isOne});
  SweepQuickKinds({"list, open and close", Job::Opens::Itself,
                   [this](void*) {
                     void* const handle = OpenHub();
                     QZ_CloseDev(handle);
                     return handle != nullptr;
                   },
                   Always});
}

TEST_F(JobSweep, ReadingVersionsAndIdsSurvivesAFaultAnywhere) {
  const auto isOld = [this] { return std::exchange(m_nVersion, 0) == 0x0102; };
  const auto isNew = [this] { return std::exchange(m_nVersion, 0) == 0x0210; };
  const auto areIds = [this] { return std::exchange(m_nVid, 0) == 0x2E7C && m_nPid == 0x0818; };
  SweepQuickKinds({"read the hub's version", Job::Opens::AndCloses,
                   [this](void* handle) { return QZ_ReadDevVersion(handle, &m_nVersion) == 1; },
                   isOld});
  SweepQuickKinds(
      {"read the file's version", Job::Opens::AndCloses,
       [this](void* handle) { return QZ_ReadBinVersion(handle, file.path(), &m_nVersion) == 1; },
       isNew});
  SweepQuickKinds(
      {"read the file's ids", Job::Opens::Itself,
       [this](void*) { return QZ_GetHidBinFileVIDPID(file.path(), &m_nVid, &m_nPid) == 1; },
       areIds});
  SweepQuickKinds({"read the hub's ids", Job::Opens::AndCloses,
                   [this](void*) {
                     return QZ_GetHubVIDPIDFromHidDevice(machine->HidInstance("hub"), &m_nVid,
                                                         &m_nPid) == 1;
                   },
                   areIds});
}

TEST_F(JobSweep, BridgesSurviveAFaultAnywhere) {
  SweepQuickKinds({"bridges", Job::Opens::ForIt, [this](void* dev) { return CrossBridges(dev); },
                   [this] { return IsCrossed(); }});
}

// Jobs that no export offers yet.
TEST_F(JobSweep, EraseAndResetSurviveAFaultAnywhere) {
  const auto isErased = [this] {
    return machine->hub("hub").bank(0).contents()[0x7F12] == 0xFF;  // of the vendor id
  };
  // A hub that does not come back is reported as erased.
  SweepResettingJob({"erase", Job::Opens::ForFlow,
                     [](void* dev) { return RunFlow(dev, &CUniversalFlow::DevErase); }, isErased,
                     [](const FaultKind&, std::uint16_t) { return true; }});
  SweepResettingJob({"reset", Job::Opens::ForFlow,
                     [](void* dev) { return RunFlow(dev, &CUniversalFlow::ResetDeviceonly); },
                     Always});
}

}  // namespace
}  // namespace qzhid::test
