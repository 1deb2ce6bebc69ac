#include "firmware/hub_fw_finder.h"

#include <fstream>
#include <utility>

#include "log/msg.h"

namespace qzhid {

bool CHubFwFinder::LoadFwbin2Buf(FwBuffer& out) {
  constexpr const char* kTag = "CHubFwFinder::LoadFwbin2Buf";
  std::ifstream file(m_strPath, std::ios::in | std::ios::binary);
  CMsg::Instance().Log(0, kTag, "Current fw path is %s.\n", m_strPath.c_str());
  FwBuffer image = ReadWhole(file);
  if (image.empty() || IsTooLong(kTag, image)) {
    CMsg::Instance().Log(1, kTag, "load fw to buf return failed.\n");
    return false;
  }
  out = std::move(image);
  CMsg::Instance().Log(0, kTag, "load fw to buf return success.\n");
  return true;
}

}  // namespace qzhid
