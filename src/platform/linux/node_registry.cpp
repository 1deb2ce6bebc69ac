#include "platform/linux/node_registry.h"

#include "platform/system/backend_locks.h"

namespace qzhid::platform {

CNodeRegistry& CNodeRegistry::Instance() {
  static constinit CProcessObject<CNodeRegistry> instance;
  return instance.Get();
}

DevInst CNodeRegistry::FindLocked(const std::string& folder, std::uint64_t instance) const {
  for (const auto& [number, node] : m_Nodes) {
    if (node->instance == instance && node->folder == folder) return number;
  }
  return 0;
}

Status CNodeRegistry::NumberOf(const std::string& folder, Reader read, DevInst& number) {
  const std::lock_guard<std::mutex> guard(m_Lock);
  const std::uint64_t instance = InstanceOf(folder);
  if (const DevInst known = FindLocked(folder, instance); known != 0) {
    number = known;
    return {};
  }
  auto node = std::make_shared<NodeFacts>();
  if (Status status = read(folder, *node); !status) return status;
  // Another device may have come between the two looks at the folder.
  if (node->instance != instance) return NoDevice();
  m_Nodes[++m_nLast] = std::move(node);
  number = m_nLast;
  return {};
}

DevInst CNodeRegistry::NumberOfEntry(const HidrawEntry& entry) {
  const std::lock_guard<std::mutex> guard(m_Lock);
  const auto found = m_Entries.find(entry);
  return found == m_Entries.end() ? 0 : found->second;
}

void CNodeRegistry::RememberEntry(const HidrawEntry& entry, DevInst number) {
  const std::lock_guard<std::mutex> guard(m_Lock);
  m_Entries[entry] = number;
}

std::size_t CNodeRegistry::EntryCount() {
  const std::lock_guard<std::mutex> guard(m_Lock);
  return m_Entries.size();
}

CNodeRegistry::Node CNodeRegistry::Find(DevInst number) {
  const std::lock_guard<std::mutex> guard(m_Lock);
  const auto found = m_Nodes.find(number);
  if (found == m_Nodes.end()) return nullptr;
  return IsPresent(found->second->folder, found->second->instance) ? found->second : nullptr;
}

void CNodeRegistry::DropAbsent() {
  const std::lock_guard<std::mutex> guard(m_Lock);
  std::erase_if(m_Nodes, [](const auto& entry) {
    return !IsPresent(entry.second->folder, entry.second->instance);
  });
  std::erase_if(m_Entries, [this](const auto& entry) { return !m_Nodes.contains(entry.second); });
}

void LockBackend() { CNodeRegistry::Instance().ForkLock().lock(); }
void UnlockBackend() { CNodeRegistry::Instance().ForkLock().unlock(); }

}  // namespace qzhid::platform
