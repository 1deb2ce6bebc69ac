// Scanning.
#include "discovery/hid_find.h"

#include "log/msg.h"
#include "transport/request_cmd.h"

namespace qzhid {

namespace {

constexpr int kHidArriveAttempts = 50;

}  // namespace

bool CHidFind::EnumAllDevs() {
  return EnumNodes("CHidFind::EnumAllDevs", [](std::uint32_t node) {
    return CRequestCMD::Instance().YvHid_IsWqHid(node) != 0;
  });
}

void CHidFind::ArriveAllDevs() {
  for (const std::uint32_t node : ArrivedDevInsts()) {
    platform::DevInst usbNode = 0;
    if (!platform::GetParent(node, usbNode)) {
      CMsg::Instance().Log(3, "CHidFind::ArriveAllDevs", "Get Hid parent devinst fail\n");
      return;
    }
    if (ArriveNode(usbNode, node, kHidArriveAttempts)) return;
  }
}

}  // namespace qzhid
