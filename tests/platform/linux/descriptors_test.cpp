// File descriptors: which ones the Linux backend takes, and what it says when there are none.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>

#include "platform/code_of.h"
#include "platform/linux/kernel_double.h"
#include "platform/linux/node_registry.h"
#include "platform/linux/sysfs.h"

namespace qzhid::platform::test {

namespace {

/// As long as this lives no descriptor of that number or a higher one can be had.
class FewDescriptors {
 public:
  explicit FewDescriptors(int end) {
    getrlimit(RLIMIT_NOFILE, &m_Before);
    rlimit few = m_Before;
    few.rlim_cur = static_cast<rlim_t>(end);
    setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &m_Before); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit m_Before{};
};

std::string TextOf(const NodeFacts& node) {
  std::string text = node.deviceId + ' ' + node.locationPath + ' ' + node.locationInfo;
  for (const std::string& id : node.hardwareIds) text += ' ' + id;
  if (node.hasInterruptOut) text += " OUT";
  return text;
}

/// The result of a task that finds so many descriptors to be had. Nothing else is done meanwhile,
/// because sanitizers and reports of failures need some, too.
template <class Task>
Status WithDescriptors(int spare, const Task& task) {
  const FewDescriptors few(OpenFile("/dev/null", O_RDONLY).get() + spare);
  return task();
}

TEST(Descriptors, FilesStayClearOfStandardInputOutputAndError) {
  const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(STDIN_FILENO);
  CFileHandle file = OpenFile("/dev/null", O_RDWR);
  const int flags = fcntl(file.get(), F_GETFD);
  const bool isFree = fcntl(STDIN_FILENO, F_GETFD) < 0;
  const FewDescriptors none(file.get() + 1);
  const bool isRefused = !OpenFile("/dev/null", O_RDWR) && errno == EMFILE;
  const bool isStillFree = fcntl(STDIN_FILENO, F_GETFD) < 0;
  dup2(kept, STDIN_FILENO);  // what reports failures may need it
  close(kept);
  EXPECT_LT(STDERR_FILENO, file.get());
  EXPECT_EQ(FD_CLOEXEC, flags);
  EXPECT_TRUE(isFree);
  EXPECT_TRUE(isRefused);
  EXPECT_TRUE(isStillFree);
}

/// A hub at port 3 with all that there is to read of one.
class DescriptorTest : public ::testing::Test {
 protected:
  DescriptorTest() {
    kernel.Plug({.ports = "3",
                 .attributes = {{"idVendor", "2e7c"},
                                {"idProduct", "0818"},
                                {"serial", "A1"},
                                {"bNumInterfaces", " 2"}}});
    const std::string endpoint = kernel.UsbFolder("3") + "/1-3:1.0/ep_0f";
    kernel.Write(endpoint + "/type", "Interrupt\n");
    kernel.Write(endpoint + "/direction", "out\n");
  }

  KernelDouble kernel;
  const std::string hidraw = kernel.Path(kernel.HidrawFolder("3", 0)),
                    hub = kernel.Path(kernel.UsbFolder("3")), root = hub.substr(0, hub.rfind('/'));
};

TEST_F(DescriptorTest, ANodeIsReadWholeOrTheShortageIsNamed) {
  const struct {
    Status (*read)(const std::string&, NodeFacts&);
    std::string folder;
    int needed;  // descriptors at a time
  } rows[] = {{&ReadHidNode, hidraw, 4}, {&ReadUsbNode, hub, 4}, {&ReadUsbNode, root, 3}};
  for (const auto& row : rows) {
    NodeFacts whole;
    ASSERT_TRUE(row.read(row.folder, whole)) << row.folder;
    for (int spare = 0; spare <= row.needed; ++spare) {
      NodeFacts node;
      const Status status = WithDescriptors(spare, [&] { return row.read(row.folder, node); });
      EXPECT_EQ(spare == row.needed ? 0 : EMFILE, CodeOf(status)) << row.folder << spare;
      if (!status) continue;
      EXPECT_EQ(TextOf(whole), TextOf(node));
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
  ASSERT_TRUE(look());
  const DevInst before = number;
  EXPECT_EQ(0, CodeOf(WithDescriptors(0, look)));
  EXPECT_EQ(before, number);
  const auto lookAtRoot = [&] { return registry.NumberOf(root, &ReadUsbNode, rootNumber); };
  EXPECT_EQ(EMFILE, CodeOf(WithDescriptors(0, lookAtRoot)));
  EXPECT_EQ(0, CodeOf(lookAtRoot()));
}

TEST_F(DescriptorTest, DevicesThatCouldNotBeOpenedAreNotListed) {
  NodeSet set;
  const auto list = [&] { return OpenNodeSet(HidClassGuid(), set); };
  for (int spare = 0; spare <= 6; ++spare) {
    EXPECT_EQ(spare == 6 ? 0 : EMFILE, CodeOf(WithDescriptors(spare, list))) << spare;
    DevInst node = 0;
    EXPECT_EQ(spare == 6, EnumNode(set, 0, node).ok);
  }
}

}  // namespace

}  // namespace qzhid::platform::test
