#include "platform/linux/hidraw_requests.h"

namespace qzhid::platform {

OpenStatus CheckReportRequests(const CFileHandle& hidraw) {
  constexpr std::size_t kShortestReport = 2;
  // Kernels that know the request look for the report's ID first and find no memory. The release
  // would say less: distributions add requests to old kernels.
  const int result =
      Uninterrupted([&] { return ioctl(hidraw.get(), HIDIOCGINPUT(kShortestReport), nullptr); });
  if (result >= 0 || errno == EFAULT) return {};
  if (errno != EINVAL && errno != ENOTTY) return LastFailure();
  return {Status::Failure(ENOSYS),
          "The kernel cannot send reports to hubs, update it to Linux 5.11"};
}

}  // namespace qzhid::platform
