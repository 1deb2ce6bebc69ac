// A process that has run out of file descriptors.
#pragma once

#include <sys/resource.h>

namespace qzhid::test {

/// As long as this lives no descriptor of that number or a higher one can be had.
class FewDescriptors {
 public:
  explicit FewDescriptors(int end) {
    getrlimit(RLIMIT_NOFILE, &before_);
    rlimit few = before_;
    few.rlim_cur = static_cast<rlim_t>(end);
    setrlimit(RLIMIT_NOFILE, &few);
  }
  ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }
  FewDescriptors(const FewDescriptors&) = delete;
  FewDescriptors& operator=(const FewDescriptors&) = delete;

 private:
  rlimit before_{};
};

}  // namespace qzhid::test
