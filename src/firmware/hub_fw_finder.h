// Loads the image from a file.
#pragma once

#include <string>

#include "firmware/fw_finder.h"

namespace qzhid {

class CHubFwFinder final : public IFwFinder {
 public:
  explicit CHubFwFinder(std::string path) : m_strPath(std::move(path)) {}

  /// True when the file is a regular one, could be read to its end and is not empty.
  bool LoadFwbin2Buf(FwBuffer& out) override;

 private:
  std::string m_strPath;
};

}  // namespace qzhid
