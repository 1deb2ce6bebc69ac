// The import table of a loaded module.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <string_view>

namespace doubles {

/// Lets the module's calls of an imported function, whatever DLL it comes from, go to another one.
/// Returns whether the module imports a function of that name.
bool Redirect(HMODULE module, std::string_view function, void* replacement);

}  // namespace doubles
