// File descriptors: which ones the Linux backend takes, and what it reports when there are none.
#include <sys/resource.h>

#include "platform/linux/kernel_double.h"
#include "platform/linux/node_registry.h"
#include "platform/linux/sysfs.h"

namespace qzhid::platform::test {

namespace {

/// The result of a task that finds so many free descriptors. Nothing else is done meanwhile,
/// because sanitizers and reports of failures need some, too.
template <class Task>
auto WithDescriptors(int spare, const Task& task) {
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit few = before;
  few.rlim_cur = static_cast<rlim_t>(OpenFile("/dev/null", O_RDONLY).get() + spare);
  setrlimit(RLIMIT_NOFILE, &few);
  const auto result = task();
  setrlimit(RLIMIT_NOFILE, &before);
  return result;
}

TEST(Descriptors, FilesStayClearOfStandardInputOutputAndError) {
  const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(STDIN_FILENO);
  const CFileHandle file = OpenFile("/dev/null", O_RDWR);
  const int flags = fcntl(file.get(), F_GETFD);
  const bool isRefused =
      WithDescriptors(0, [] { return !OpenFile("/dev/null", O_RDWR) && errno == EMFILE; });
  const bool isFree = fcntl(STDIN_FILENO, F_GETFD) < 0;
  dup2(kept, STDIN_FILENO);  // what reports failures may need it
  close(kept);
  EXPECT_LT(STDERR_FILENO, file.get());
  EXPECT_EQ(FD_CLOEXEC, flags);
  EXPECT_TRUE(isRefused);
  EXPECT_TRUE(isFree);
}

/// A hub at port 3 with all that there is to read of one.
class DescriptorTest : public ::testing::Test {
 protected:
  DescriptorTest() {
    kernel.Plug("3", 0, {{"serial", "A1"}, {"bNumInterfaces", " 2"}});
    const std::string endpoint = kernel.UsbFolder("3") + "/1-3:1.0/ep_0f";
    kernel.Write(endpoint + "/type", "Interrupt\n");
    kernel.Write(endpoint + "/direction", "out\n");
  }

  KernelDouble kernel;
  const std::string hidraw = kernel.Path(kernel.HidrawFolder("3", 0)),
                    hub = kernel.Path(kernel.UsbFolder("3")), root = hub.substr(0, hub.rfind('/'));
};

TEST_F(DescriptorTest, ANodeIsReadWholeAndAllAreListedOrTheShortageIsReported) {
  NodeSet set;
  const auto list = [&](const std::string&, NodeFacts& node) {
    const Status status = OpenNodeSet(HidClassGuid(), set);
    node.hasInterruptOut = set != nullptr;
    return status;
  };
  const struct {
    std::function<Status(const std::string&, NodeFacts&)> read;
    std::string folder;
    int needed;  // descriptors at a time
  } rows[] = {
      {&ReadHidNode, hidraw, 4}, {&ReadUsbNode, hub, 4}, {&ReadUsbNode, root, 3}, {list, "all", 6}};
  const auto factsOf = [](const NodeFacts& node) {
    return std::tuple(node.deviceId, node.hardwareIds, node.locationPath, node.locationInfo,
                      node.hasInterruptOut);
  };
  for (const auto& row : rows) {
    NodeFacts whole;
    ASSERT_TRUE(row.read(row.folder, whole)) << row.folder;
    for (int spare = 0; spare <= row.needed; ++spare) {
      NodeFacts node;
      const Status status = WithDescriptors(spare, [&] { return row.read(row.folder, node); });
      EXPECT_EQ(spare == row.needed ? 0 : EMFILE, CodeOf(status)) << row.folder << spare;
      EXPECT_EQ(factsOf(status ? whole : node), factsOf(node));
    }
  }
}

TEST_F(DescriptorTest, WithoutAnyKnownNodesKeepTheirNumbers) {
  CNodeRegistry registry;
  DevInst number = 0, rootNumber = 0;
  const auto look = [&] {
    registry.DropAbsent();
    const Status status = registry.NumberOf(hub, &ReadUsbNode, number);
    return registry.Find(number) != nullptr ? status : NoDevice();
  };
  const auto lookAtRoot = [&] { return registry.NumberOf(root, &ReadUsbNode, rootNumber); };
  EXPECT_EQ(0, CodeOf(look()));
  EXPECT_EQ(0, CodeOf(WithDescriptors(0, look)));
  EXPECT_EQ(1u, number);
  EXPECT_EQ(EMFILE, CodeOf(WithDescriptors(0, lookAtRoot)));
  EXPECT_EQ(0, CodeOf(lookAtRoot()));
}

}  // namespace

}  // namespace qzhid::platform::test
