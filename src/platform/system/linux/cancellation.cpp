// Cancellation of threads, as POSIX has it.
#include <pthread.h>

#include "platform/platform.h"

namespace qzhid::platform {

namespace {

// The state that the host's code on this thread has.
thread_local int t_nHostState = PTHREAD_CANCEL_ENABLE;

}  // namespace

CCancellationShield::CCancellationShield() noexcept : m_nOuter(t_nHostState) {
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &t_nHostState);
}

CCancellationShield::~CCancellationShield() {
  pthread_setcancelstate(t_nHostState, nullptr);
  t_nHostState = m_nOuter;
}

CCancellationWindow::CCancellationWindow() {
  pthread_setcancelstate(t_nHostState, nullptr);
  pthread_testcancel();
}

CCancellationWindow::~CCancellationWindow() {
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
}

}  // namespace qzhid::platform
