// Takes the place of the operator new of the sanitizer or the standard library, for the whole
// program.
#include "scarce_memory.h"

#include <dlfcn.h>

#include <new>

namespace {

thread_local bool t_counts = false;
thread_local std::uint64_t t_used = 0, t_first = 0, t_last = 0;

using Allocate = void* (*)(std::size_t);

Allocate Next(const char* mangledName) {
  return reinterpret_cast<Allocate>(dlsym(RTLD_NEXT, mangledName));
}

void* Pass(Allocate next, std::size_t size) {
  if (t_counts && ++t_used >= t_first && t_used <= t_last) throw std::bad_alloc();
  return next(size);
}

}  // namespace

void* operator new(std::size_t size) {
  static const Allocate next = Next("_Znwm");
  return Pass(next, size);
}
void* operator new[](std::size_t size) {
  static const Allocate next = Next("_Znam");
  return Pass(next, size);
}

namespace qzhid::test {

void MakeMemoryScarce(std::uint64_t first, std::uint64_t last) {
  t_used = 0;
  t_first = first;
  t_last = last;
  t_counts = true;
}

std::uint64_t EndScarcity() {
  t_counts = false;
  return t_used;
}

}  // namespace qzhid::test
