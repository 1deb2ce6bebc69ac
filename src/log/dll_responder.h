// Passes progress values to the host's callback.
#pragma once

#include "log/responder.h"

namespace qzhid {

class CDllResponder : public IResponder {
 public:
  using Callback = void (*)(int percent);

  explicit CDllResponder(Callback callback) : m_pCallback(callback) {}

  void OnLog(const char*, int) override {}
  void OnPrint(const char*, int) override {}
  void OnNotify(const char*, int, int) override {}
  void OnProgress(int value) override {
    if (m_pCallback != nullptr) m_pCallback(value);
  }
  void SetLevel(int) override {}
  unsigned Takes() const override { return kProgress; }

 private:
  Callback m_pCallback;
};

}  // namespace qzhid
