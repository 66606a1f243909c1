// Reading the JSON body of a request. HTTP thread.
#pragma once

#include <optional>
#include <span>

#include "base/json.h"

struct http_connection;

// The object in the body; null when the body is not JSON, not valid UTF-8 or larger than 1 MiB.
json_owner read_json_body(http_connection* connection, const char* body, unsigned long length);

// A text of at most 15 characters, the longest word that a route takes; longer ones are cut.
struct body_word {
  char text[16] = "";
};

// The members of a body, each kind read in one way, that of json-c. An array, an object and null count as
// missing, like a member that is not there.

// A string, a number or a boolean as a text, copied into `text` of `size` bytes and cut where it is longer
// (base/text.h). False, with "" copied, when it is missing.
bool copy_body_text(json_object* object, const char* key, char* text, size_t size);
std::optional<body_word> body_text(json_object* object, const char* key);

// A number, a boolean, or a text that begins with a number, as an integer kept inside an int.
std::optional<int> body_integer(json_object* object, const char* key);

// The decimal number at the start of a text, kept inside an int; 0 when it does not begin with one.
std::optional<int> body_text_number(json_object* object, const char* key);

// A boolean, a number that is not 0, or a text that is not empty.
std::optional<bool> body_flag(json_object* object, const char* key);

// Version 1.0: only a JSON number is one.
std::optional<int> body_plain_number(json_object* object, const char* key);

// The member, traced at the API's level behind `label`; nothing, and no trace, when it is missing.
std::optional<body_word> take_word(json_object* object, const char* key, const char* label);
std::optional<int> take_number(json_object* object, const char* key, const char* label);

// The place of the member among the words that a route knows; nothing when it is missing or another word.
std::optional<int> take_choice(json_object* object, const char* key, const char* label,
                               std::span<const char* const> words);
