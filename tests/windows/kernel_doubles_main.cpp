// The library under test, in the program or in its DLL, runs on the machine from the start.
#include <gtest/gtest.h>

#include "windows/kernel_doubles.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  const HMODULE library = GetModuleHandleW(L"QzHidAPI.dll");
  doubles::UseKernelDoubles(library != nullptr ? library : GetModuleHandleW(nullptr));
  return RUN_ALL_TESTS();
}
