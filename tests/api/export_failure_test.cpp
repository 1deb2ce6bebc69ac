// Exports that run out of memory at any of their allocations: what they return, and that they leave
// nothing open, locked or registered.
#include <thread>

#include "api/api_calls.h"
#include "faults/scarce_memory.h"

namespace qzhid::test {
namespace {

int g_calls = 0;
void CountCalls(std::int32_t) { ++g_calls; }

class ExportFailureTest : public ApiTest {
 protected:
  /// Runs the export again and again, each time with another allocation that fails, until it needs
  /// no more. `check` looks at the result each time, and at 0 for one without a failure.
  template <class Export, class Check>
  void Sweep(const Export& run, const Check& check, std::uint64_t stride = 1) {
    std::uint64_t used = 1;
    for (std::uint64_t failing = 1; failing <= used; failing += stride) {
      InstallJson(R"({"devices": [{"name": "hub", "port": "1"}]})");
      machine->recorder().Stop();  // it uses memory as well
      SCOPED_TRACE(failing);
      prepare();
      MakeMemoryScarce(failing, failing);
      const auto result = run();
      used = EndScarcity();
      check(result);
      // The gate is open: nothing is waited for, and nothing is refused.
      log.Clear();
      std::uint32_t listed = 0;
      std::thread([&] { listed = List(); }).join();
      EXPECT_EQ(1u, listed);
      EXPECT_EQ(kNoHandles, Handles());
      QZ_CloseDev(std::exchange(handle, nullptr));
      if (HasFailure()) return;
    }
    EXPECT_LT(1u, used);
  }

  std::function<void()> prepare = [] { List(); };
  const TempFile image{virtualhub::BuildImage({.version = 0x0210}, 0x7FA8)};
};

TEST_F(ExportFailureTest, AListingReturnsAListOrNoneAndClosesTheDevices) {
  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  const auto check = [&](std::uint8_t result) {
    EXPECT_EQ(result == 1, list != nullptr);
    EXPECT_EQ(kNoHandles, Handles());
    QZ_FreeDevList(std::exchange(list, nullptr));
  };
  Sweep([&] { return QZ_ListAllHidDev(&list, &count); }, check);
  Sweep([&] { return QZ_ListAllHidDevByVIDPID(0x2E7C, 0x0818, &list, &count); }, check);
}

TEST_F(ExportFailureTest, AnOpeningReturnsAnOpenDeviceOrClosesWhatItOpened) {
  Sweep([&] { return handle = QZ_OpenHid(machine->HidInstance("hub")); },
        [&](void* opened) { EXPECT_EQ(opened != nullptr ? kOneDevice : kNoHandles, Handles()); });
}

TEST_F(ExportFailureTest, ReadingTheIdsOfAHubClosesIt) {
  std::uint32_t vid = 0, pid = 0;
  Sweep([&] { return QZ_GetHubVIDPIDFromHidDevice(machine->HidInstance("hub"), &vid, &pid); },
        [&](std::uint8_t) { EXPECT_EQ(kNoHandles, Handles()); });
}

TEST_F(ExportFailureTest, JobsOnAHandleLetOtherThreadsInAgain) {
  prepare = [this] { Open(); };
  std::uint16_t version = 0;
  const auto check = [](std::uint8_t result) { EXPECT_LE(result, 1); };
  Sweep([&] { return QZ_ReadDevVersion(handle, &version); }, check);
  Sweep([&] { return QZ_ReadBinVersion(handle, image.path(), &version); }, check);
}

TEST_F(ExportFailureTest, AClosingClosesTheDeviceAndForgetsTheHandle) {
  prepare = [this] { Open(); };
  Sweep([&] { return QZ_CloseDev(handle), 0; },
        [&](int) {
          EXPECT_EQ(kNoHandles, Handles());
          EXPECT_EQ(kRejected, QZ_HidI2CConfig(handle, 0xA0, 2, 1));
        });
}

TEST_F(ExportFailureTest, AnUpdateLetsOtherThreadsInAgainAndNoLongerReportsProgress) {
  prepare = [this] { Open(); };
  constexpr std::uint64_t kStride = 37;  // of some thousand allocations
  Sweep([&] { return QZ_UpdateDev(handle, image.path(), CountCalls); },
        [](std::uint8_t) {
          g_calls = 0;
          CMsg::Instance().Progress(50);
          EXPECT_EQ(0, g_calls);
        },
        kStride);
}

TEST_F(ExportFailureTest, RequestsReturnTheirFailureValueAndLetOtherThreadsInAgain) {
  prepare = [this] { Open(); };
  for (const ApiCall& call : kApiCalls) {
    if (call.Rejection() == 0) continue;
    SCOPED_TRACE(call.name);
    MakeMemoryScarce(0, 0);
    Open();
    EndScarcity();
    MakeMemoryScarce(1, UINT64_MAX);
    const std::uint32_t result = call.call(handle);
    const bool usesMemory = EndScarcity() > 0;
    EXPECT_TRUE(usesMemory);
    EXPECT_NE(0u, result);
    std::thread([&] { EXPECT_EQ(1u, List()); }).join();
  }
}

}  // namespace
}  // namespace qzhid::test
