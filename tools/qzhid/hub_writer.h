// Writes an image to one hub, and tries again when that fails.
#pragma once

#include <functional>

#include "qzhid/clock.h"
#include "qzhid/host.h"
#include "qzhid/image.h"
#include "qzhid/update_messages.h"

namespace qzhid {

/// Whether to try once more, asked after a try has failed.
using MayRetry = std::function<bool()>;

/// The hub was exchanged for another one while it was written.
class HubReplaced : public Failure {
 public:
  using Failure::Failure;
};

/// Checks the hub at job.location once more and writes the image in job.image to it, unless it runs
/// that already. After a failure waits until the port has the hub again, says what it runs, and
/// tries again up to job.retries times, from the loader, too. The last report is ReportDone. Throws
/// Failure when the hub does not run the image in the end.
void WriteHub(Host& host, const WorkerJob& job, const Image& image, Clock& clock,
              const Reporter& report, const MayRetry& mayRetry);

}  // namespace qzhid
