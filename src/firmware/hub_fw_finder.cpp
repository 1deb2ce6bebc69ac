#include "firmware/hub_fw_finder.h"

#include <utility>

#include "log/msg.h"
#include "platform/platform.h"

namespace qzhid {

bool CHubFwFinder::LoadFwbin2Buf(FwBuffer& out) {
  constexpr const char* kTag = "CHubFwFinder::LoadFwbin2Buf";
  CMsg::Instance().Log(0, kTag, "Current fw path is %s.\n", m_strPath.c_str());
  FwBuffer image;
  if (!platform::ReadRegularFile(m_strPath.c_str(), image) || image.empty()) {
    CMsg::Instance().Log(1, kTag, "load fw to buf return failed.\n");
    return false;
  }
  out = std::move(image);
  CMsg::Instance().Log(0, kTag, "load fw to buf return success.\n");
  return true;
}

}  // namespace qzhid
