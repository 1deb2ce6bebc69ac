// A kernel before Linux 5.11, which cannot send reports over the control pipe. Only such a kernel
// runs these tests.
#include <gmock/gmock.h>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// What a call logs.
template <class Call>
std::string LogOf(const Call& call) {
  const std::string log = "/tmp/old-kernel-log.txt";
  QZ_SetLogPath(log.c_str());
  QZ_ConfigLog(1, 0);
  const std::size_t begin = ReadFile(log).size();
  call();
  QZ_ConfigLog(0, 0);
  return ReadFile(log).substr(begin);
}

void ExpectReason(const std::string& log) {
  EXPECT_THAT(log, HasSubstr("CreateFile failed,ErrorCode is 00000026\n"));
  EXPECT_THAT(log, HasSubstr("The kernel cannot send reports to hubs, update it to Linux 5.11\n"));
}

TEST(OldKernel, NoHubCanBeListedOrOpenedAndTheLogSaysWhy) {
  const Attached attached(HubScenario());
  ExpectReason(LogOf([] { EXPECT_THAT(List(), IsEmpty()); }));
  HidDevRecord* records = nullptr;
  std::uint32_t count = 0;
  ASSERT_EQ(1, QZ_ListAllHidDevByVIDPID(0x2E7C, 0x0818, &records, &count));
  ASSERT_EQ(1u, count) << "this list opens no device";
  const std::uint32_t instance = records[0].dwInst;
  QZ_FreeDevList(records);
  ExpectReason(LogOf([=] { EXPECT_EQ(nullptr, QZ_OpenHid(instance)); }));
}

TEST(OldKernel, TheProgramSaysThatTheKernelIsTooOld) {
  const Attached attached(HubScenario());
  const std::string remedy =
      "; update the kernel to 5.11 or newer: an older one cannot send requests to hubs\n";
  EXPECT_EQ(std::pair(4, "qzhid: hub 1-1: the hub cannot be opened" + remedy),
            RunProgram("qzhid info"));
  const auto [status, findings] = RunProgram("qzhid doctor");
  EXPECT_EQ(1, status);
  EXPECT_THAT(findings, HasSubstr("PROBLEM  the kernel is 5."));
  EXPECT_THAT(findings, HasSubstr("PROBLEM  hub 1-1 cannot be opened" + remedy));
}

}  // namespace
}  // namespace qzhid::vm
