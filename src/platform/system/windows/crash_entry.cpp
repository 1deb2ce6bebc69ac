#include "platform/system/windows/crash_entry.h"

#include <atomic>
#include <cstring>

namespace qzhid::platform {

namespace {

constexpr std::size_t kPageSize = 0x1000;

// A copy of this code runs in one page; the next one, which is writable, begins with the address
// that it jumps to. The second half answers EXCEPTION_CONTINUE_SEARCH.
#if defined(__x86_64__) || defined(_M_X64)
constexpr std::uint8_t kCode[] = {0xFF, 0x25, 0xFA, 0x0F, 0x00, 0x00,  // jmp [rip + 0xFFA]
                                  0x31, 0xC0,                          // xor eax, eax
                                  0xC3};                               // ret
constexpr std::size_t kAnswerOffset = 6;
#elif defined(__aarch64__) || defined(_M_ARM64)
constexpr std::uint32_t kCode[] = {0x58008010,   // ldr x16, . + 0x1000
                                   0xD61F0200,   // br x16
                                   0x52800000,   // mov w0, #0
                                   0xD65F03C0};  // ret
constexpr std::size_t kAnswerOffset = 8;
#else
constexpr std::uint8_t kCode[] = {0};
constexpr std::size_t kAnswerOffset = 0;
#endif

using Target = std::atomic<const void*>;

std::uint8_t* CodeOf(ExceptionFilter entry) { return reinterpret_cast<std::uint8_t*>(entry); }
Target& TargetOf(std::uint8_t* code) { return *reinterpret_cast<Target*>(code + kPageSize); }

}  // namespace

ExceptionFilter MakeCrashEntry(ExceptionFilter filter) noexcept {
  if (kAnswerOffset == 0) return nullptr;
  auto* const code = static_cast<std::uint8_t*>(
      VirtualAlloc(nullptr, 2 * kPageSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
  if (code == nullptr) return nullptr;
  std::memcpy(code, kCode, sizeof(kCode));
  TargetOf(code) = reinterpret_cast<const void*>(filter);
  const auto entry = reinterpret_cast<ExceptionFilter>(code);
  DWORD before = 0;
  if (!VirtualProtect(code, kPageSize, PAGE_EXECUTE_READ, &before)) {
    FreeCrashEntry(entry);
    return nullptr;
  }
  FlushInstructionCache(GetCurrentProcess(), code, sizeof(kCode));
  return entry;
}

void RetireCrashEntry(ExceptionFilter entry, ExceptionFilter filter) noexcept {
  std::uint8_t* const code = CodeOf(entry);
  TargetOf(code) = filter != nullptr ? reinterpret_cast<const void*>(filter) : code + kAnswerOffset;
}

void FreeCrashEntry(ExceptionFilter entry) noexcept {
  VirtualFree(reinterpret_cast<void*>(entry), 0, MEM_RELEASE);
}

}  // namespace qzhid::platform
