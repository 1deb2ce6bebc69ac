// Kernel services that act on the machine: its clock, its debugger and its open handles.
#pragma once

#include "windows/import_table.h"

namespace doubles {

/// Lets the module's kernel calls go to the machine. Files and events remain real.
void UseKernelDoubles(HMODULE module);

}  // namespace doubles
