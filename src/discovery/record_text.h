// The texts of an exported record.
#pragma once

#include <string>

#include "QzHidAPI.h"

namespace qzhid {

/// Stores text as UTF-16 in a field of so many units, cut so that a zero remains after it; a
/// surrogate pair is kept or dropped whole.
void StoreText(QZ_Utf16* field, std::size_t units, const std::wstring& text);

/// The text of such a field, up to its first zero.
std::wstring ReadText(const QZ_Utf16* field, std::size_t units);

}  // namespace qzhid
