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

// Copies the member into `text` of `size` bytes, cut where it is longer (base/text.h). False, with "" copied,
// when it is missing, null or not a JSON string.
bool copy_body_text(json_object* object, const char* key, char* text, size_t size);

// The member as a text; nothing when it is missing, null or not a JSON string.
std::optional<body_word> body_text(json_object* object, const char* key);

// The member as an integer (json-c's reading of numbers and booleans, kept inside an int); nothing when it is
// missing, null or of another type.
std::optional<int> body_integer(json_object* object, const char* key);

// The decimal number at the start of a text member, kept inside an int; nothing when there is no such text.
std::optional<int> body_text_number(json_object* object, const char* key);

// The object "parameters" of a version-1.0 command, or what stands in its place as "params"; null without
// one. Borrowed.
json_object* body_parameters(json_object* object);

// The place of `word` among the words that a route knows, or nothing.
std::optional<int> find_word(std::span<const char* const> words, const char* word);

// The whole way of a handler that takes one member: reads the body and traces `message` with the member at
// the API's level; an empty word, or -1, stands for a missing one.
body_word take_word(http_connection* connection, const char* body, unsigned long length, const char* key,
                    const char* message);
std::optional<int> take_number(http_connection* connection, const char* body, unsigned long length,
                               const char* key, const char* message);
