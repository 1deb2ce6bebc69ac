#include "windows/import_table.h"

#include <cstdint>

namespace doubles {

namespace {

class Image {
 public:
  explicit Image(HMODULE module) : base_(reinterpret_cast<std::uint8_t*>(module)) {}

  template <class T>
  T* At(std::uint64_t offset) const {
    return reinterpret_cast<T*>(base_ + offset);
  }
  IMAGE_IMPORT_DESCRIPTOR* Imports() const {
    const auto* const dos = At<IMAGE_DOS_HEADER>(0);
    const auto* const headers = At<IMAGE_NT_HEADERS64>(static_cast<std::uint64_t>(dos->e_lfanew));
    const auto& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    return At<IMAGE_IMPORT_DESCRIPTOR>(directory.VirtualAddress);
  }

 private:
  std::uint8_t* base_;
};

void Overwrite(ULONGLONG& slot, void* target) {
  DWORD protection = 0;
  VirtualProtect(&slot, sizeof(slot), PAGE_READWRITE, &protection);
  slot = reinterpret_cast<ULONGLONG>(target);
  VirtualProtect(&slot, sizeof(slot), protection, &protection);
}

}  // namespace

bool Redirect(HMODULE module, std::string_view function, void* replacement) {
  const Image image(module);
  bool found = false;
  for (auto* import = image.Imports(); import->Name != 0; ++import) {
    const auto* names = image.At<IMAGE_THUNK_DATA64>(import->OriginalFirstThunk);
    auto* slots = image.At<IMAGE_THUNK_DATA64>(import->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++slots) {
      if (IMAGE_SNAP_BY_ORDINAL64(names->u1.Ordinal)) continue;
      const auto* const entry = image.At<IMAGE_IMPORT_BY_NAME>(names->u1.AddressOfData);
      if (function != reinterpret_cast<const char*>(entry->Name)) continue;
      Overwrite(slots->u1.Function, replacement);
      found = true;
    }
  }
  return found;
}

}  // namespace doubles
