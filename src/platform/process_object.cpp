#include "platform/process_object.h"

#include <utility>

namespace qzhid::platform {

namespace {

constinit CProcessObjectBase* g_pYoungest = nullptr;

}  // namespace

std::recursive_mutex& MakingLock() noexcept {
  alignas(std::recursive_mutex) static std::byte room[sizeof(std::recursive_mutex)];
  static std::recursive_mutex& lock = *new (room) std::recursive_mutex;
  return lock;
}

void CProcessObjectBase::Register(Destroy destroy) noexcept {
  m_pDestroy = destroy;
  m_pEarlier = std::exchange(g_pYoungest, this);
}

void DestroyProcessObjects() noexcept {
  while (g_pYoungest != nullptr) {
    CProcessObjectBase& object = *std::exchange(g_pYoungest, g_pYoungest->m_pEarlier);
    object.m_pDestroy(object);
  }
}

}  // namespace qzhid::platform
