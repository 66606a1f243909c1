#include "xmp/xml_text.h"

#include <algorithm>

namespace {

struct escape {
  char plain;
  std::string_view escaped;
};
// The whitespace, because an attribute's would be read as blanks, and a newline would end our line.
constexpr escape kEscapes[] = {
    {'&', "&amp;"}, {'<', "&lt;"},   {'>', "&gt;"},   {'"', "&quot;"},
    {'\t', "&#9;"}, {'\n', "&#10;"}, {'\r', "&#13;"},
};

bool continues(char byte) { return (byte & 0xC0) == 0x80; }

// XML has neither other control characters nor U+FFFE and U+FFFF.
bool is_writable(std::string_view character) {
  return static_cast<unsigned char>(character[0]) >= 0x20 && character != "\xEF\xBF\xBE" &&
         character != "\xEF\xBF\xBF";
}

// What stands for the first character of `text`, of `length` bytes.
std::string_view written_character(std::string_view text, size_t length) {
  for (const escape& e : kEscapes) {
    if (text[0] == e.plain) return e.escaped;
  }
  const std::string_view character = text.substr(0, length);
  return is_writable(character) ? character : "?";
}

}  // namespace

std::string xml_escaped(std::string_view text, size_t limit) {
  std::string result;
  while (!text.empty()) {
    size_t length = 1;
    while (length < text.size() && continues(text[length])) ++length;
    const std::string_view character = written_character(text, length);
    if (result.size() + character.size() > limit) break;
    result += character;
    text.remove_prefix(length);
  }
  return result;
}

std::string xml_unescaped(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const escape* found = std::find_if(std::begin(kEscapes), std::end(kEscapes),
                                       [&](const escape& e) { return text.starts_with(e.escaped); });
    const bool is_plain = found == std::end(kEscapes);
    result += is_plain ? text[0] : found->plain;
    text.remove_prefix(is_plain ? 1 : found->escaped.size());
  }
  return result;
}

bool has_other_references(std::string_view text) {
  for (size_t start = text.find('&'); start != std::string_view::npos; start = text.find('&', start + 1)) {
    const std::string_view from = text.substr(start);
    if (std::ranges::any_of(kEscapes, [&](const escape& e) { return from.starts_with(e.escaped); })) continue;
    const size_t end =
        from.find_first_not_of("#0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ", 1);
    if (end > 1 && end != std::string_view::npos && from[end] == ';') return true;
  }
  return false;
}
