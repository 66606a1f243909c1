// Bounded text copies, what text is, and the numbers that it holds.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// Copies `text` into `destination` of `size` bytes: cut to size - 1 bytes, at the end of a UTF-8 character,
// and always terminated. A size of 0 writes nothing. Any thread.
void copy_text(char* destination, size_t size, std::string_view text);

// Whether `c` is a control character: it could forge a line of a console or a log.
inline bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

// Whether `text` is valid UTF-8 (RFC 3629), as every text must be that goes into JSON.
bool is_utf8(std::string_view text);

// `text` itself when it is UTF-8, else its ASCII with "?" for every other byte.
std::string as_utf8(std::string text);

// The decimal number at the start of `text`, as strtol reads it, kept inside an int; nothing when it does not
// begin with one.
std::optional<int> leading_number(const char* text);

// The same, 0 when it does not begin with one.
int number_or_zero(const char* text);

// The place of `word` in a list of words; nothing when it is none of them.
std::optional<int> find_word(std::span<const char* const> words, std::string_view word);
