// The jobs of a session as people read them: those in which nothing happened are told together.
#pragma once

#include <string>
#include <vector>

#include "qzhid/explain/log_jobs.h"

namespace qzhid {

struct JobGroup {
  const Job* first = nullptr;
  std::string text;  ///< "list hubs 2 times, open, close"; empty for a job that is shown by itself
};

/// In the order of the log. Updates and problems are shown by themselves.
std::vector<JobGroup> GroupJobs(const Session& session);

}  // namespace qzhid
