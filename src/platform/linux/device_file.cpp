#include "platform/linux/device_file.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "platform/linux/sysfs.h"

namespace qzhid::platform {

OpenStatus OpenDeviceFile(const NodeFacts& node, CFileHandle& file) {
  CFileHandle opened = OpenFile(node.deviceFile.c_str(), O_RDWR);
  if (!opened) {
    const Status failure = LastFailure();
    const bool isRefused = failure.code == EACCES || failure.code == EPERM;
    return {failure, isRefused ? "No permission for " + node.deviceFile : ""};
  }
  // Device numbers and file names are used again. The node's own folder, if it is still there, says
  // which number the node has.
  Status shortage;
  const CSysfsFolder folder(node.folder, shortage);
  const std::string number = folder.Read("dev").value_or("");
  if (!shortage) return shortage;
  struct stat facts {};
  if (fstat(opened.get(), &facts) != 0) return LastFailure();
  const std::string openedNumber =
      std::to_string(major(facts.st_rdev)) + ':' + std::to_string(minor(facts.st_rdev));
  if (folder.Instance() != node.instance || !S_ISCHR(facts.st_mode) || number != openedNumber) {
    return NoDevice();
  }
  file = std::move(opened);
  return {};
}

}  // namespace qzhid::platform
