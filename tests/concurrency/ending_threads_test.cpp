// Threads that end inside the library: cancelled, or in the progress callback of an update.
#include <pthread.h>
#include <unwind.h>

#include <atomic>
#include <functional>
#include <stdexcept>

#include "api/api_test.h"

namespace qzhid::test {
namespace {

std::vector<int> g_progress;
void (*g_end)() = nullptr;

void EndAt30(std::int32_t percent) {
  g_progress.push_back(percent);
  if (percent == 30) g_end();
}

/// What another language's runtime throws.
void ThrowForeign() {
  static _Unwind_Exception foreign{};
  foreign.exception_class = 0x464F524549474E00;
  foreign.exception_cleanup = [](_Unwind_Reason_Code, _Unwind_Exception*) {};
  _Unwind_RaiseException(&foreign);
}

class EndingThreadTest : public ApiTest {
 protected:
  EndingThreadTest() { OpenHub(); }

  /// An update on a thread of its own, cancellable or not; what that returned: null after a failed
  /// update, PTHREAD_CANCELED when it was ended.
  void* Update(void (*end)(), int cancelState = PTHREAD_CANCEL_ENABLE) {
    g_end = end;
    g_progress.clear();
    return OnAThread([this, cancelState]() -> void* {
      pthread_setcancelstate(cancelState, nullptr);
      return QZ_UpdateDev(handle, image.path(), EndAt30) == 1 ? this : nullptr;
    });
  }

  /// What the function returns on a thread of its own, or PTHREAD_CANCELED.
  static void* OnAThread(const std::function<void*()>& function) {
    pthread_t thread{};
    const auto start = [](void* given) {
      return (*static_cast<const std::function<void*()>*>(given))();
    };
    pthread_create(&thread, nullptr, start, const_cast<std::function<void*()>*>(&function));
    void* result = nullptr;
    pthread_join(thread, &result);
    return result;
  }

  const TempFile image{virtualhub::BuildImage({.version = 0x0210}, 0x7FA8)};
};

void CancelSelf() { pthread_cancel(pthread_self()); }

TEST_F(EndingThreadTest, AThreadThatEndsInTheCallbackEndsTheUpdateAsFailedAndReleasesAll) {
  const char* const ended = "The calling thread is being ended\n";
  const auto cancelAtOnce = [] { CancelSelf(), pthread_testcancel(); };
  const struct {
    const char* how;
    void (*end)();
    const char* lastLine;
    bool isEnded;
  } rows[] = {
      {"pthread_exit", [] { pthread_exit(PTHREAD_CANCELED); }, ended, true},
      {"pthread_cancel", cancelAtOnce, ended, true},
      {"cancelled by the next progress", CancelSelf, ended, true},
      {"a C++ exception", [] { throw std::runtime_error("enough"); }, "Exception:enough\n", false},
      {"a foreign exception", ThrowForeign, "Unknown exception\n", false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.how);
    OpenHub();
    EXPECT_EQ(row.isEnded ? PTHREAD_CANCELED : nullptr, Update(row.end));
    std::vector<int> progress = {0, 10, 20, 30};
    if (!row.isEnded) progress.push_back(0);
    EXPECT_EQ(progress, g_progress);
    EXPECT_EQ(1u, Count({1, "CUniversalFlow::DevUpdate", "Update Fw Fail\n"}));
    EXPECT_EQ(1u, Count({3, "QZ_UpdateDev", row.lastLine}));
    EXPECT_EQ(kNoHandles, Handles());
    Open();
    EXPECT_EQ(this, Update([] {})) << "another thread can update the hub after that";
  }
}

TEST_F(EndingThreadTest, ACancelledThreadFinishesACallThatHasNoCallback) {
  std::atomic<std::uint32_t> result{1};
  EXPECT_EQ(PTHREAD_CANCELED, OnAThread([&]() -> void* {
              CancelSelf();
              result = QZ_HidGPIOW(handle, 1, 1);
              pthread_testcancel();
              return nullptr;
            }));
  EXPECT_EQ(0u, result);
}

TEST_F(EndingThreadTest, AThreadThatHasSwitchedCancellationOffIsNotCancelledInTheCallback) {
  EXPECT_EQ(this, Update(CancelSelf, PTHREAD_CANCEL_DISABLE)) << "the update is done";
  EXPECT_EQ(100, g_progress.back());
}

}  // namespace
}  // namespace qzhid::test
