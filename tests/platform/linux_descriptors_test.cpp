// File descriptors: which ones the Linux backend takes, and what it says when there are none.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "platform/linux/node_registry.h"
#include "platform/linux/sysfs.h"
#include "support/linux/few_descriptors.h"

namespace qzhid::platform::test {

namespace {

using qzhid::test::FewDescriptors;

/// A root hub with a hub on its port 3, as sysfs shows them.
class Bus {
 public:
  Bus() {
    std::filesystem::create_directories(hidraw);
    std::filesystem::create_directory(hub + "/1-3:1.0/ep_0f");
    Write(root, {{"idVendor", "1d6b"}, {"idProduct", "0003"}, {"devnum", "1"}, {"speed", "5000"}});
    Write(hub, {{"idVendor", "2e7c"}, {"idProduct", "0818"}, {"devnum", "2"}, {"serial", "A1"}});
    Write(hub, {{"bNumInterfaces", " 2"}});
    Write(hub + "/1-3:1.0/ep_0f", {{"type", "Interrupt"}, {"direction", "out"}});
  }
  ~Bus() { std::filesystem::remove_all(folder); }

  const std::string folder = ::testing::TempDir() + "qz-bus-" + std::to_string(getpid());
  const std::string root = folder + "/usb1", hub = root + "/1-3";
  const std::string hidraw = hub + "/1-3:1.0/0003:2E7C:0818.0001/hidraw/hidraw0";

 private:
  using Attributes = std::vector<std::pair<const char*, const char*>>;
  static void Write(const std::string& device, Attributes attributes) {
    attributes.insert(attributes.end(), {{"bcdDevice", "0100"}, {"busnum", "1"}});
    for (const auto& [name, text] : attributes) std::ofstream(device + '/' + name) << text << '\n';
  }
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

std::string Verdict(const Status& status) {
  if (status) return "done";
  return status.code == EMFILE ? "EMFILE" : std::to_string(status.code);
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

TEST(Descriptors, ANodeIsReadWholeOrTheWantIsNamed) {
  const Bus bus;
  const struct {
    Status (*read)(const std::string&, NodeFacts&);
    std::string folder;
    int needed;  // descriptors at a time
  } rows[] = {
      {&ReadHidNode, bus.hidraw, 4}, {&ReadUsbNode, bus.hub, 4}, {&ReadUsbNode, bus.root, 3}};
  for (const auto& row : rows) {
    NodeFacts whole;
    ASSERT_TRUE(row.read(row.folder, whole)) << row.folder;
    for (int spare = 0; spare <= row.needed; ++spare) {
      NodeFacts node;
      const Status status = WithDescriptors(spare, [&] { return row.read(row.folder, node); });
      EXPECT_EQ(spare == row.needed ? "done" : "EMFILE", Verdict(status)) << row.folder << spare;
      if (status) {
        EXPECT_EQ(TextOf(whole), TextOf(node));
      }
    }
  }
}

TEST(Descriptors, WithoutAnyKnownNodesKeepTheirNumbers) {
  const Bus bus;
  CNodeRegistry registry;
  DevInst hub = 0, root = 0, again = 0;
  const auto look = [&] {
    registry.DropAbsent();
    const Status status = registry.NumberOf(bus.hub, &ReadUsbNode, again);
    return registry.Find(again) != nullptr ? status : NoDevice();
  };
  ASSERT_TRUE(look());
  hub = again;
  EXPECT_EQ("done", Verdict(WithDescriptors(0, look)));
  EXPECT_EQ(hub, again);
  const auto lookAtRoot = [&] { return registry.NumberOf(bus.root, &ReadUsbNode, root); };
  EXPECT_EQ("EMFILE", Verdict(WithDescriptors(0, lookAtRoot)));
  EXPECT_EQ("done", Verdict(lookAtRoot()));
}

TEST(Descriptors, DevicesAreNotListedThatCouldNotBeOpened) {
  NodeSet set;
  const auto list = [&] { return OpenNodeSet(HidClassGuid(), set); };
  for (int spare = 0; spare < 6; ++spare) {
    EXPECT_EQ("EMFILE", Verdict(WithDescriptors(spare, list))) << spare;
  }
}

}  // namespace

}  // namespace qzhid::platform::test
