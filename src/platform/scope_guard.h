// What has to happen at the end of a scope, however it is left.
#pragma once

#include <utility>

namespace qzhid::platform {

/// Makes a call once, which must not throw: at the end of the scope unless it was made before or
/// dismissed.
template <class Call>
class CScopeGuard {
 public:
  explicit CScopeGuard(Call call) : m_Call(std::move(call)) {}
  ~CScopeGuard() { RunNow(); }
  CScopeGuard(const CScopeGuard&) = delete;
  CScopeGuard& operator=(const CScopeGuard&) = delete;

  void RunNow() noexcept {
    if (std::exchange(m_bWaiting, false)) m_Call();
  }
  void Dismiss() noexcept { m_bWaiting = false; }

 private:
  Call m_Call;
  bool m_bWaiting = true;
};

}  // namespace qzhid::platform
