// Objects that the whole process shares.
#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <new>

namespace qzhid::platform {

/// An object that unloading the library destroys.
class CProcessObjectBase {
 public:
  using Destroy = void (*)(CProcessObjectBase& object) noexcept;

 protected:
  constexpr CProcessObjectBase() = default;

  /// From now on unloading the library destroys the object.
  void Register(Destroy destroy) noexcept;

 private:
  friend void DestroyProcessObjects() noexcept;

  Destroy m_pDestroy = nullptr;
  CProcessObjectBase* m_pEarlier = nullptr;
};

/// One object of the process, made on first use by any thread. The end of the process does not
/// destroy it, because threads may be using it until then; unloading the library does. For objects
/// of static storage duration only.
template <class T>
class CProcessObject final : public CProcessObjectBase {
 public:
  constexpr CProcessObject() = default;

  /// Throws what the constructor of T throws.
  T& Get() {
    if (T* const made = IfMade(); made != nullptr) return *made;
    return Make();
  }

  /// The object; null before its first use. Waits for nothing.
  T* IfMade() { return m_pObject.load(std::memory_order_acquire); }

 private:
  T& Make();

  static void Destroy(CProcessObjectBase& base) noexcept {
    static_cast<CProcessObject&>(base).m_pObject.exchange(nullptr)->~T();
  }

  std::atomic<T*> m_pObject{nullptr};
  alignas(T) std::byte m_Room[sizeof(T)]{};
};

/// Held while an object is made, whose constructor must not need another one. Not the lock that the
/// compiler makes for a static object: a child process that is forked at that moment could not
/// release that.
std::mutex& MakingLock() noexcept;

template <class T>
T& CProcessObject<T>::Make() {
  const std::lock_guard<std::mutex> lock(MakingLock());
  if (T* const made = m_pObject.load(std::memory_order_relaxed); made != nullptr) return *made;
  T* const object = new (m_Room) T;
  Register(&Destroy);
  m_pObject.store(object, std::memory_order_release);
  return *object;
}

/// Destroys all of them, the youngest first, when the library is unloaded: no thread is inside it
/// any more.
void DestroyProcessObjects() noexcept;

}  // namespace qzhid::platform
