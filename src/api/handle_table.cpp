#include "api/handle_table.h"

#include <typeinfo>
#include <utility>

#include "log/msg.h"

namespace qzhid {

CHandleTable& CHandleTable::Instance() {
  static constinit platform::CProcessObject<CHandleTable> instance;
  return instance.Get();
}

void* CHandleTable::Add(std::shared_ptr<IDev> dev) {
  void* const handle = dev.get();
  const std::lock_guard<std::mutex> lock(m_Lock);
  m_Devices[handle] = std::move(dev);
  return handle;
}

std::shared_ptr<IDev> CHandleTable::Take(void* handle) {
  const std::lock_guard<std::mutex> lock(m_Lock);
  const auto found = m_Devices.extract(handle);
  return found.empty() ? nullptr : found.mapped();
}

std::shared_ptr<IDev> CHandleTable::Find(void* handle) {
  const std::lock_guard<std::mutex> lock(m_Lock);
  const auto found = m_Devices.find(handle);
  return found != m_Devices.end() ? found->second : nullptr;
}

std::shared_ptr<CHidDev> CHandleTable::FindHidDev(const char* tag, void* handle) {
  const std::shared_ptr<IDev> dev = Find(handle);
  if (const IDev* const object = dev.get();
      object != nullptr && typeid(*object) == typeid(CHidDev)) {
    return std::static_pointer_cast<CHidDev>(dev);
  }
  CMsg::Instance().Log(3, tag, "Unknow Dev!!\n");
  return nullptr;
}

}  // namespace qzhid
