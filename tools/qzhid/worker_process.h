// The processes that write hubs, one for each.
#pragma once

#include <string>

#include "qzhid/update_job.h"
#include "qzhid/update_options.h"

namespace qzhid {

/// Starts workers that write one image.
class WorkerStarter {
 public:
  WorkerStarter(Host& host, const WriteOptions& options, const Image& image)
      : host_(host), options_(options), image_(image) {}

  /// Throws Failure when the process cannot be started. The log of the worker is added to that of
  /// the user when it has ended; the library is not to be loaded then.
  std::unique_ptr<Worker> Start(const Hub& hub, bool isForStation = false);

 private:
  Host& host_;
  const WriteOptions& options_;
  const Image& image_;
  std::size_t started_ = 0;
};

}  // namespace qzhid
