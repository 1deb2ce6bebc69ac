#include "platform/process_object.h"

#include <utility>

namespace qzhid::platform {

namespace {

constinit CProcessObjectBase* g_pYoungest = nullptr;

}  // namespace

std::mutex& MakingLock() noexcept {
  alignas(std::mutex) static std::byte room[sizeof(std::mutex)];
  static std::mutex& lock = *new (room) std::mutex;
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
