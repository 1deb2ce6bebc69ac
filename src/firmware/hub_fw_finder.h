// Takes the image from a file.
#pragma once

#include <string>

#include "firmware/fw_finder.h"

namespace qzhid {

class CHubFwFinder final : public IFwFinder {
 public:
  explicit CHubFwFinder(std::string path) : m_strPath(std::move(path)) {}

  /// True when at least one byte was read, and no more than an image may have.
  bool LoadFwbin2Buf(FwBuffer& out) override;

 private:
  std::string m_strPath;
};

}  // namespace qzhid
