// Reading the JSON body of a request. HTTP server thread.
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

// The object "parameters" of a version-1.0 command, or what stands in its place as "params"; null without
// one. Borrowed.
json_object* body_parameters(json_object* object);

// The place of `word` among the words that a route knows, or nothing.
std::optional<int> find_word(std::span<const char* const> words, const char* word);

// The whole way of a handler that takes one member: reads the body and traces `message` with the member at
// the API's level. Nothing, and no trace, when it is missing.
std::optional<body_word> take_word(http_connection* connection, const char* body, unsigned long length,
                                   const char* key, const char* message);
std::optional<int> take_number(http_connection* connection, const char* body, unsigned long length,
                               const char* key, const char* message);
