#include "platform/system/linux/crash_entry.h"

#include <sys/mman.h>

#include <atomic>
#include <cstddef>
#include <cstring>

namespace qzhid::platform {

namespace {

// The code is in one page, which is executable, and its data in another, which is writable. Their
// distance is the size of the largest page.
constexpr std::size_t kDataOffset = 0x10000;
constexpr std::size_t kSize = 2 * kDataOffset;

struct EntryData {
  std::atomic<const void*> target;
  int (*install)(int, const struct sigaction*, struct sigaction*);
  int (*send)(int);
  struct sigaction actions[kCrashEntrySignals];
};

// What the code below relies on.
static_assert(offsetof(EntryData, target) == 0 && sizeof(EntryData::target) == 8);
static_assert(offsetof(EntryData, install) == 8 && offsetof(EntryData, send) == 16);
static_assert(offsetof(EntryData, actions) == 24 && sizeof(struct sigaction) == 152);
static_assert(offsetof(siginfo_t, si_code) == 8);

EntryData& DataOf(char* code) { return *reinterpret_cast<EntryData*>(code + kDataOffset); }
char* CodeOf(SignalHandler entry) { return reinterpret_cast<char*>(entry); }

}  // namespace

// A copy of this code runs, next to its data; it holds no address of the library. Once retired, it
// does
//   install(number, &actions[number], nullptr);
//   if (info->si_code <= 0) send(number);
#if defined(__x86_64__)
#define QZ_HAS_CRASH_ENTRY
asm(R"(
  .pushsection .rodata
  .balign 16
qz_crash_entry:
  endbr64
  jmp *(qz_crash_entry + 0x10000)(%rip)
qz_crash_entry_retired:
  endbr64
  push %rdi
  push %rsi
  sub $8, %rsp
  movslq %edi, %rax
  imul $152, %rax, %rax
  lea (qz_crash_entry + 0x10000 + 24)(%rip), %rsi
  add %rax, %rsi
  xor %edx, %edx
  call *(qz_crash_entry + 0x10000 + 8)(%rip)
  add $8, %rsp
  pop %rsi
  pop %rdi
  cmpl $0, 8(%rsi)
  jle 1f
  ret
1:
  jmp *(qz_crash_entry + 0x10000 + 16)(%rip)
qz_crash_entry_end:
  .popsection
)");
#elif defined(__aarch64__)
#define QZ_HAS_CRASH_ENTRY
asm(R"(
  .pushsection .rodata
  .balign 16
qz_crash_entry:
  ldr x16, qz_crash_entry + 0x10000
  br x16
qz_crash_entry_retired:
  stp x29, x30, [sp, #-32]!
  mov x29, sp
  stp x0, x1, [sp, #16]
  mov w2, #152
  adr x1, qz_crash_entry + 0x10000 + 24
  smaddl x1, w0, w2, x1
  mov x2, #0
  ldr x16, qz_crash_entry + 0x10000 + 8
  blr x16
  ldp x0, x1, [sp, #16]
  ldp x29, x30, [sp], #32
  ldr w1, [x1, #8]
  cmp w1, #0
  b.le 1f
  ret
1:
  ldr x16, qz_crash_entry + 0x10000 + 16
  br x16
qz_crash_entry_end:
  .popsection
)");
#endif

#ifdef QZ_HAS_CRASH_ENTRY
extern "C" {
extern const char qz_crash_entry[] __attribute__((visibility("hidden")));
extern const char qz_crash_entry_retired[] __attribute__((visibility("hidden")));
extern const char qz_crash_entry_end[] __attribute__((visibility("hidden")));
}

SignalHandler MakeCrashEntry(SignalHandler handler) noexcept {
  void* const memory =
      mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return nullptr;
  auto* const code = static_cast<char*>(memory);
  std::memcpy(code, qz_crash_entry, static_cast<std::size_t>(qz_crash_entry_end - qz_crash_entry));
  __builtin___clear_cache(code, code + kDataOffset);
  EntryData& data = DataOf(code);
  data.target = reinterpret_cast<const void*>(handler);
  data.install = &sigaction;
  data.send = &raise;
  if (mprotect(code, kDataOffset, PROT_READ | PROT_EXEC) != 0) {
    munmap(code, kSize);
    return nullptr;
  }
  return reinterpret_cast<SignalHandler>(memory);
}

void RetireCrashEntry(SignalHandler entry, const struct sigaction* actions) noexcept {
  EntryData& data = DataOf(CodeOf(entry));
  std::memcpy(data.actions, actions, sizeof(data.actions));
  data.target = CodeOf(entry) + (qz_crash_entry_retired - qz_crash_entry);
}
#else
SignalHandler MakeCrashEntry(SignalHandler) noexcept { return nullptr; }
void RetireCrashEntry(SignalHandler, const struct sigaction*) noexcept {}
#endif

void FreeCrashEntry(SignalHandler entry) noexcept { munmap(CodeOf(entry), kSize); }

}  // namespace qzhid::platform
