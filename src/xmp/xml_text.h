// Texts as they stand in an attribute of XML ("Extensible Markup Language 1.0", 2.4 and 4.1), in one line.
// Pure.
#pragma once

#include <string>
#include <string_view>

// At most `limit` bytes, cut at a whole character. Control characters that XML does not have become "?".
std::string xml_escaped(std::string_view text, size_t limit);

// What xml_escaped has escaped; everything else stays as it is.
std::string xml_unescaped(std::string_view text);

// Whether it holds references ("&apos;", "&#233;") that xml_unescaped leaves as they are.
bool has_other_references(std::string_view text);
