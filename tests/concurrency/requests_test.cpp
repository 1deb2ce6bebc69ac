// Requests of several threads to one device.
#include <thread>

#include "support/layer_test.h"

namespace qzhid::test {
namespace {

using RequestsTest = LayerTest;

// Threads read different places of the flash; an answer that another thread's request came in
// between of would be the wrong one.
TEST_F(RequestsTest, EachRequestOfManyThreadsGetsItsOwnAnswer) {
  CMsg::Instance().ClearResponders();  // waiting for the lock on the virtual clock logs a lot
  OpenHub();
  machine->recorder().Stop();
  ASSERT_EQ(0u, requests.Yv_VdCmdEnable(kEnableCommands));
  const auto flash = machine->hub("hub").bank(0).contents();

  const auto read = [&](std::size_t place) {
    for (int i = 0; i < 50; ++i) {
      std::array<std::uint8_t, 64> answer{};
      ASSERT_EQ(0u, requests.Yv_SendVDCmd(0xC0, 0xD8, static_cast<std::uint16_t>(place), 0,
                                          answer.data(), 64, 0xFFFFFFFF));
      ASSERT_TRUE(std::equal(answer.begin(), answer.end(),
                             flash.begin() + static_cast<std::ptrdiff_t>(place)));
    }
  };
  std::vector<std::thread> threads;
  for (std::size_t i = 1; i <= 3; ++i) threads.emplace_back(read, i * 0x1000);
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace qzhid::test
