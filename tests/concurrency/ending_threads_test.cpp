// Threads that end inside the library: cancelled, or in the progress callback of an update.
#include <pthread.h>
#include <unwind.h>

#include <atomic>
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
  EndingThreadTest() {
    OpenHub();
    g_progress.clear();
  }

  /// An update on a thread of its own, cancellable or not; what that returned: null after a failed
  /// update, PTHREAD_CANCELED when it was ended.
  void* Update(void (*end)(), int cancelState = PTHREAD_CANCEL_ENABLE) {
    g_end = end;
    m_nCancelState = cancelState;
    pthread_t thread{};
    pthread_create(
        &thread, nullptr,
        [](void* self) { return static_cast<EndingThreadTest*>(self)->UpdateOnThisThread(); },
        this);
    void* result = nullptr;
    pthread_join(thread, &result);
    return result;
  }

  const TempFile image{virtualhub::BuildImage({.version = 0x0210}, 0x7FA8)};

 private:
  void* UpdateOnThisThread() {
    pthread_setcancelstate(m_nCancelState, nullptr);
    return QZ_UpdateDev(handle, image.path(), EndAt30) == 1 ? this : nullptr;
  }

  int m_nCancelState = PTHREAD_CANCEL_ENABLE;
};

constexpr const char* kEndOfThread = "The calling thread is being ended\n";

TEST_F(EndingThreadTest, AThreadThatEndsInTheCallbackEndsTheUpdateAsFailedAndReleasesAll) {
  const struct {
    const char* how;
    void (*end)();
    std::vector<int> progress;
    const char* lastLine;
    bool isEnded;
  } rows[] = {
      {"pthread_exit", [] { pthread_exit(PTHREAD_CANCELED); }, {0, 10, 20, 30}, kEndOfThread, true},
      {"pthread_cancel",
       [] {
         pthread_cancel(pthread_self());
         pthread_testcancel();
       },
       {0, 10, 20, 30},
       kEndOfThread,
       true},
      {"cancelled by the next progress",
       [] { pthread_cancel(pthread_self()); },
       {0, 10, 20, 30},
       kEndOfThread,
       true},
      {"a C++ exception",
       [] { throw std::runtime_error("enough"); },
       {0, 10, 20, 30, 0},
       "Exception:enough\n",
       false},
      {"a foreign exception", ThrowForeign, {0, 10, 20, 30, 0}, "Unknown exception\n", false},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.how);
    OpenHub();
    g_progress.clear();
    EXPECT_EQ(row.isEnded ? PTHREAD_CANCELED : nullptr, Update(row.end));
    EXPECT_EQ(row.progress, g_progress);
    EXPECT_EQ(1u, Count({1, "CUniversalFlow::DevUpdate", "Update Fw Fail\n"}));
    EXPECT_EQ(1u, Count({3, "QZ_UpdateDev", row.lastLine}));
    EXPECT_EQ(kNoHandles, Handles());
    Open();
    EXPECT_NE(nullptr, Update([] {})) << "another thread can update the hub after that";
  }
}

TEST_F(EndingThreadTest, ACancelledThreadFinishesACallThatHasNoCallback) {
  static std::atomic<std::uint32_t> s_result;
  s_result = 1;
  pthread_t thread{};
  pthread_create(
      &thread, nullptr,
      [](void* dev) -> void* {
        pthread_cancel(pthread_self());
        s_result = QZ_HidGPIOW(dev, 1, 1);
        pthread_testcancel();
        return nullptr;
      },
      handle);
  void* result = nullptr;
  pthread_join(thread, &result);
  EXPECT_EQ(PTHREAD_CANCELED, result);
  EXPECT_EQ(0u, s_result);
}

TEST_F(EndingThreadTest, AThreadThatHasSwitchedCancellationOffIsNotCancelledInTheCallback) {
  const auto cancel = [] { pthread_cancel(pthread_self()); };
  EXPECT_EQ(this, Update(cancel, PTHREAD_CANCEL_DISABLE)) << "the update is done";
  EXPECT_EQ(100, g_progress.back());
}

}  // namespace
}  // namespace qzhid::test
