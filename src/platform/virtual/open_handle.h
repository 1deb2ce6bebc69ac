#pragma once

#include <memory>

#include "virtualhub/current_world.h"

namespace qzhid::platform {

/// Keeps the machine alive that a handle belongs to, and counts the handle there.
class COpenHandle {
 public:
  COpenHandle(std::shared_ptr<virtualhub::World> world, virtualhub::HandleKind kind)
      : m_pWorld(std::move(world)), m_Kind(kind) {
    m_pWorld->AddHandle(m_Kind);
  }
  ~COpenHandle() { m_pWorld->DropHandle(m_Kind); }
  COpenHandle(const COpenHandle&) = delete;
  COpenHandle& operator=(const COpenHandle&) = delete;

  virtualhub::World& world() const { return *m_pWorld; }
  const std::shared_ptr<virtualhub::World>& shared() const { return m_pWorld; }

 private:
  const std::shared_ptr<virtualhub::World> m_pWorld;
  const virtualhub::HandleKind m_Kind;
};

}  // namespace qzhid::platform
