#pragma once

#include <memory>

#include "virtualhub/bus/current_machine.h"

namespace qzhid::platform {

/// Keeps the machine of a handle alive, and counts the handle there.
class COpenHandle {
 public:
  COpenHandle(std::shared_ptr<virtualhub::Machine> machine, virtualhub::HandleKind kind)
      : m_pMachine(std::move(machine)), m_Kind(kind) {
    m_pMachine->AddHandle(m_Kind);
  }
  ~COpenHandle() { m_pMachine->DropHandle(m_Kind); }
  COpenHandle(const COpenHandle&) = delete;
  COpenHandle& operator=(const COpenHandle&) = delete;

  virtualhub::Machine& machine() const { return *m_pMachine; }
  const std::shared_ptr<virtualhub::Machine>& shared() const { return m_pMachine; }

 private:
  const std::shared_ptr<virtualhub::Machine> m_pMachine;
  const virtualhub::HandleKind m_Kind;
};

}  // namespace qzhid::platform
