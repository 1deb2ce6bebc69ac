#include "qzhid/explain/readable_text.h"

#include "virtualhub/base/utf8.h"

namespace qzhid {

namespace {

using virtualhub::DecodeUtf8;
using virtualhub::Utf8Character;

bool IsControlCharacter(char32_t character) {
  return character < 0x20 || (character >= 0x7F && character < 0xA0);
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const Utf8Character next = DecodeUtf8(text);
    if (!next.isValid) return false;
    text.remove_prefix(next.length);
  }
  return true;
}

Utf8Character FirstLatin(std::string_view text) {
  return {static_cast<unsigned char>(text[0]), 1, true};
}

}  // namespace

std::string ReadableText(std::string_view bytes) {
  const bool isUtf8 = IsUtf8(bytes);
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const Utf8Character next = isUtf8 ? DecodeUtf8(bytes) : FirstLatin(bytes);
    if (IsControlCharacter(next.character)) {
      text += ' ';
    } else if (isUtf8 || next.character < 0x80) {
      text += bytes.substr(0, next.length);
    } else {
      virtualhub::AppendUtf8(text, next.character);
    }
    bytes.remove_prefix(next.length);
  }
  return text;
}

}  // namespace qzhid
