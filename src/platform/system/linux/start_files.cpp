// What the start files and the static part of the C library do in other toolchains' libraries, for
// portable builds, whose toolchain lacks it: objects and handlers end when the library is unloaded.

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
extern char __dso_handle [[gnu::visibility("hidden")]];
void __cxa_finalize(void* library);
int __register_atfork(void (*prepare)(), void (*parent)(), void (*child)(), void* library);

/// The C library's own function would keep the handlers.
[[gnu::visibility("hidden")]] int pthread_atfork(void (*prepare)(), void (*parent)(),
                                                 void (*child)()) {
  return __register_atfork(prepare, parent, child, &__dso_handle);
}
}

namespace {

/// The last destructor to run.
__attribute__((destructor(101))) void EndObjects() { __cxa_finalize(&__dso_handle); }

}  // namespace
// NOLINTEND(bugprone-reserved-identifier)
