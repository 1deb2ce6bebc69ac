// Windows does not cancel threads.
#include "platform/platform.h"

namespace qzhid::platform {

CCancellationShield::CCancellationShield() noexcept : m_nOuter(0) {}
CCancellationShield::~CCancellationShield() {}
CCancellationWindow::CCancellationWindow() = default;
CCancellationWindow::~CCancellationWindow() {}

}  // namespace qzhid::platform
