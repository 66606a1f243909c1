#include "base/text.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

bool continues(char byte) { return (static_cast<uint8_t>(byte) & 0xC0) == 0x80; }

// The length of the character at the start of `text`, 0 when it is none.
size_t character_length(std::string_view text) {
  const auto first = static_cast<uint8_t>(text[0]);
  const size_t length = first < 0x80   ? 1
                        : first < 0xC2 ? 0
                        : first < 0xE0 ? 2
                        : first < 0xF0 ? 3
                        : first < 0xF5 ? 4
                                       : 0;
  if (length > text.size()) return 0;
  for (size_t i = 1; i < length; ++i) {
    if (!continues(text[i])) return 0;
  }
  if (length < 3) return length;
  const auto second = static_cast<uint8_t>(text[1]);
  // Over-long forms, surrogates, and what lies beyond the last character.
  const bool bad = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                   (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
  return bad ? 0 : length;
}

}  // namespace

void copy_text(char* destination, size_t size, std::string_view text) {
  if (size == 0) return;
  size_t length = text.size();
  if (length > size - 1) {
    length = size - 1;
    while (length > 0 && continues(text[length])) --length;
  }
  if (length != 0) memcpy(destination, text.data(), length);
  destination[length] = '\0';
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const size_t length = character_length(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string as_utf8(std::string text) {
  if (is_utf8(text)) return text;
  for (char& c : text) {
    if ((c & 0x80) != 0) c = '?';
  }
  return text;
}

std::optional<int> leading_number(const char* text) {
  char* end = nullptr;
  const long value = strtol(text, &end, 10);
  if (end == text) return std::nullopt;
  return static_cast<int>(std::clamp(value, long{INT_MIN}, long{INT_MAX}));
}

int number_or_zero(const char* text) { return leading_number(text).value_or(0); }

std::optional<int> find_word(std::span<const char* const> words, std::string_view word) {
  const auto found = std::ranges::find(words, word);
  return found == words.end() ? std::nullopt : std::optional(static_cast<int>(found - words.begin()));
}
