// Objects that the whole process shares.
#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <new>

namespace qzhid::platform {

/// What the unloading of the library knows of an object that it is to destroy.
class CProcessObjectBase {
 public:
  using Destroy = void (*)(CProcessObjectBase& object) noexcept;

 protected:
  constexpr CProcessObjectBase() = default;

  /// Has the object destroyed when the library is unloaded.
  void Register(Destroy destroy) noexcept;

 private:
  friend void DestroyProcessObjects() noexcept;

  Destroy m_pDestroy = nullptr;
  CProcessObjectBase* m_pEarlier = nullptr;
};

/// One object of the process, made on first use by any thread. The end of the process does not
/// destroy it, because threads may be using it until then; the unloading of the library does.
/// For objects of static storage duration only.
template <class T>
class CProcessObject final : public CProcessObjectBase {
 public:
  constexpr CProcessObject() = default;

  /// Throws what the constructor of T throws.
  T& Get() {
    T* const made = IfMade();
    return made != nullptr ? *made : Make();
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

/// Held while an object is made, whose constructor may not need another one. Not the lock that the
/// compiler makes for a static object: a child process forked meanwhile could not give that back.
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

/// Destroys all of them, the youngest first. For the unloading of the library: no thread may be
/// inside it any more.
void DestroyProcessObjects() noexcept;

}  // namespace qzhid::platform
