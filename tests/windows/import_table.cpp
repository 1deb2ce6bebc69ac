#include "windows/import_table.h"

#include <cstdint>

void ReplaceImports(HMODULE module, const Replacements& replacements) {
  auto* const base = reinterpret_cast<std::uint8_t*>(module);
  const LONG start = reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew;
  const auto& header = reinterpret_cast<IMAGE_NT_HEADERS64*>(base + start)->OptionalHeader;
  auto* import = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(
      base + header.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress);
  for (; import->Name != 0; ++import) {
    auto* name = reinterpret_cast<IMAGE_THUNK_DATA64*>(base + import->OriginalFirstThunk);
    auto* slot = reinterpret_cast<IMAGE_THUNK_DATA64*>(base + import->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL64(name->u1.Ordinal)) continue;
      const auto* const entry =
          reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + name->u1.AddressOfData);
      const auto found = replacements.find(reinterpret_cast<const char*>(entry->Name));
      if (found == replacements.end()) continue;
      DWORD protection = 0;
      VirtualProtect(slot, sizeof(*slot), PAGE_READWRITE, &protection);
      slot->u1.Function = reinterpret_cast<ULONGLONG>(found->second);
      VirtualProtect(slot, sizeof(*slot), protection, &protection);
    }
  }
}
