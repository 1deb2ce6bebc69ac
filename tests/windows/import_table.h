// Functions that a loaded module imports, replaced by others.
#pragma once

#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <map>
#include <string_view>

using Replacements = std::map<std::string_view, void*>;

/// From now on, the module calls these functions instead of the imported ones of the same names.
void ReplaceImports(HMODULE module, const Replacements& replacements);
