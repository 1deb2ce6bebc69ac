// Stands before the operator new of the sanitizer or the standard library, for the whole program.
#include "scarce_memory.h"

#include <dlfcn.h>

#include <new>

namespace {

using Allocate = void* (*)(std::size_t);

thread_local bool t_counts = false;
thread_local std::uint64_t t_used = 0, t_first = 0, t_last = 0;

void CountAllocation() {
  if (!t_counts) return;
  ++t_used;
  if (t_used >= t_first && t_used <= t_last) throw std::bad_alloc();
}

Allocate Next(const char* mangledName) {
  return reinterpret_cast<Allocate>(dlsym(RTLD_NEXT, mangledName));
}

}  // namespace

void* operator new(std::size_t size) {
  static const Allocate next = Next("_Znwm");
  CountAllocation();
  return next(size);
}
void* operator new[](std::size_t size) {
  static const Allocate next = Next("_Znam");
  CountAllocation();
  return next(size);
}

namespace qzhid::test {

ScarceMemory::ScarceMemory(std::uint64_t firstFailing, std::uint64_t lastFailing) {
  t_used = 0;
  t_first = firstFailing;
  t_last = lastFailing;
  t_counts = true;
}

ScarceMemory::~ScarceMemory() { t_counts = false; }

std::uint64_t ScarceMemory::used() const { return t_used; }

}  // namespace qzhid::test
