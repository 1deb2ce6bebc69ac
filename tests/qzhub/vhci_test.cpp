// The host controller's folder, as the kernel would show it.
#include "qzhub/vhci.h"

#include <gtest/gtest.h>

#include <fstream>

namespace qzhub::test {

namespace {

const std::string kHead = "hub port sta spd dev      sockfd local_busid\n";

TEST(VhciTest, LinesThatDoNotDescribeAPortAreIgnored) {
  const std::pair<std::string, std::vector<VhciPort>> tables[] = {
      {kHead, {}},
      {kHead + "hs  0000 006 003 00010001 000003 1-1\nss  0015 004 000 00000000 000000 0-0\n",
       {{0, true, false}, {15, false, true}}},
      {"hs\nhs x 004\nhs 3\nfs 0001 004 000\nhs 99999999999 004\nhs 0009 005", {{9, true, false}}}};
  for (const auto& [text, ports] : tables) EXPECT_EQ(ports, ParseVhciStatus(text)) << text;
}

TEST(VhciTest, PortsAreFoundAndAttached) {
  const std::filesystem::path platform = ::testing::TempDir() + "vhci";
  const std::filesystem::path folder = platform / "vhci_hcd.0";
  std::filesystem::remove_all(platform);
  EXPECT_THROW(Vhci{platform}, std::runtime_error);
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "status") << kHead << "hs  0000 006\nhs  0001 004\nss  0002 004\n";
  std::ofstream(folder / "status.1") << kHead << "hs  0004 004\n";

  const Vhci vhci(platform);
  EXPECT_EQ(1u, vhci.FindFreePort({}));
  EXPECT_EQ(4u, vhci.FindFreePort({1}));
  EXPECT_THROW(vhci.FindFreePort({1, 4}), std::runtime_error);
  for (std::uint32_t port = 0; port <= 5; ++port) {
    EXPECT_EQ(port == 1 || port == 4, vhci.IsFree(port)) << port;
  }

  EXPECT_THROW(vhci.Attach(1, 7, 65537), std::runtime_error);
  std::ofstream(folder / "attach").close();
  EXPECT_TRUE(vhci.Attach(1, 7, 65537));
  std::string line;
  std::getline(std::ifstream(folder / "attach"), line);
  EXPECT_EQ("1 7 65537 3", line);
}

}  // namespace

}  // namespace qzhub::test
