// The requests of the kernel that carry reports over the control pipe.
#pragma once

#include <linux/hidraw.h>
#include <sys/ioctl.h>

#include "platform/system/linux/system_call.h"

// Linux 5.11 and later; headers may be older than the kernel.
#ifndef HIDIOCGINPUT
#define HIDIOCGINPUT(length) _IOC(_IOC_WRITE | _IOC_READ, 'H', 0x0A, length)
#endif
#ifndef HIDIOCSOUTPUT
#define HIDIOCSOUTPUT(length) _IOC(_IOC_WRITE | _IOC_READ, 'H', 0x0B, length)
#endif

namespace qzhid::platform {

/// Whether the kernel has the requests; fails with ENOSYS when it does not. Sends nothing to the
/// device.
OpenStatus CheckReportRequests(const CFileHandle& hidraw);

}  // namespace qzhid::platform
