// The host controller's folder, as the kernel would show it.
#include "qzhub/vhci.h"

#include "support/temp_file.h"

namespace qzhub::test {

using qzhid::test::WriteText;

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
  const qzhid::test::ScratchFolder platform;
  EXPECT_THROW(Vhci{platform.path}, std::runtime_error);
  const std::filesystem::path folder = platform.path / "vhci_hcd.0";
  std::filesystem::create_directory(folder);
  WriteText(folder / "status", kHead + "hs  0000 006\nhs  0001 004\nss  0002 004\n");
  WriteText(folder / "status.1", kHead + "hs  0004 004\n");
  const Vhci vhci(platform.path);
  EXPECT_EQ(1u, vhci.FindFreePort({}));
  EXPECT_EQ(4u, vhci.FindFreePort({1}));
  EXPECT_THROW(vhci.FindFreePort({1, 4}), std::runtime_error);
  for (std::uint32_t port = 0; port <= 5; ++port) {
    EXPECT_EQ(std::set<std::uint32_t>({1, 4}).contains(port), vhci.IsFree(port)) << port;
  }
  EXPECT_THROW(vhci.Attach(1, 7, 65537), std::runtime_error);
  WriteText(folder / "attach", "");
  EXPECT_TRUE(vhci.Attach(1, 7, 65537));
  EXPECT_EQ("1 7 65537 3", qzhid::test::ReadText(folder / "attach"));
}

}  // namespace qzhub::test
