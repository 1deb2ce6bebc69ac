#include "qzhid/explain/job_groups.h"

#include <algorithm>
#include <utility>

#include "qzhid/explain/log_account.h"

namespace qzhid {

namespace {

using Kinds = std::vector<std::pair<std::string, std::size_t>>;  // what was done, and how often

bool IsQuiet(const Job& job) { return !IsProblem(job) && job.call != kUpdateCall; }

std::string KindOf(const Job& job) {
  const std::string title = TitleOf(job);
  return job.result == Result::Done ? title : title + " (" + NameOf(job.result) + ")";
}

void Count(Kinds& kinds, const std::string& kind) {
  const auto known = std::find_if(kinds.begin(), kinds.end(),
                                  [&](const auto& each) { return each.first == kind; });
  if (known != kinds.end()) {
    ++known->second;
  } else {
    kinds.emplace_back(kind, 1);
  }
}

std::string TextOfKinds(const Kinds& kinds) {
  std::string text;
  for (const auto& [kind, count] : kinds) {
    text += (text.empty() ? "" : ", ") + kind;
    if (count > 1) text += " " + std::to_string(count) + " times";
  }
  return text;
}

}  // namespace

std::vector<JobGroup> GroupJobs(const Session& session) {
  std::vector<JobGroup> groups;
  const std::vector<Job>& jobs = session.jobs;
  for (std::size_t i = 0; i < jobs.size();) {
    const std::size_t first = i;
    Kinds kinds;
    for (; i < jobs.size() && IsQuiet(jobs[i]); ++i) Count(kinds, KindOf(jobs[i]));
    if (i == first) ++i;
    groups.push_back({&jobs[first], TextOfKinds(kinds)});
  }
  return groups;
}

}  // namespace qzhid
