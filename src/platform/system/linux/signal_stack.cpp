#include "platform/system/linux/signal_stack.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <csignal>

#include "platform/platform.h"

namespace qzhid::platform {

namespace {

constexpr std::size_t kStackSize = 64 * 1024;

// A thread's value is its stack from here, or g_HostsStack. The thread releases the stack at its
// end through the key: a thread_local object with a destructor would keep the library loaded.
std::atomic<bool> g_bStarted{false};
pthread_key_t g_Key;
char g_HostsStack;

// Below each stack is a page that faults.
std::size_t GuardSize() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

bool HasStack(stack_t& current) {
  return sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE) == 0;
}

void* MapStack() {
  const std::size_t guard = GuardSize();
  void* const memory = mmap(nullptr, guard + kStackSize, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  mprotect(memory, guard, PROT_NONE);
  return static_cast<char*>(memory) + guard;
}

void GiveBack(void* stack) {
  if (stack == nullptr || stack == &g_HostsStack) return;
  stack_t current{}, none{};
  none.ss_flags = SS_DISABLE;
  // It cannot be released while its thread is running on it.
  if (HasStack(current) && current.ss_sp == stack && sigaltstack(&none, nullptr) != 0) return;
  const std::size_t guard = GuardSize();
  munmap(static_cast<char*>(stack) - guard, guard + kStackSize);
}

}  // namespace

void StartSignalStacks() noexcept {
  if (!g_bStarted) g_bStarted = pthread_key_create(&g_Key, &GiveBack) == 0;
}

void EndSignalStacks() noexcept {
  if (!g_bStarted.exchange(false)) return;
  GiveBack(pthread_getspecific(g_Key));
  pthread_key_delete(g_Key);
}

void CoverThread() noexcept {
  if (!g_bStarted || pthread_getspecific(g_Key) != nullptr) return;
  stack_t own{};
  if (HasStack(own)) {
    pthread_setspecific(g_Key, &g_HostsStack);
    return;
  }
  own = {};
  own.ss_sp = MapStack();
  own.ss_size = kStackSize;
  if (own.ss_sp == nullptr) return;
  if (pthread_setspecific(g_Key, own.ss_sp) != 0 || sigaltstack(&own, nullptr) != 0) {
    pthread_setspecific(g_Key, nullptr);
    GiveBack(own.ss_sp);
  }
}

}  // namespace qzhid::platform
