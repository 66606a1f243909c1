#include "http/json_body.h"

#include <cmath>
#include <cstring>

#include "base/text.h"
#include "base/trace.h"
#include "http/server.h"

namespace {

// Small nested arrays take some fifty times their text as objects.
constexpr unsigned long kJsonBodyLimit = 1 << 20;

}  // namespace

json_owner read_json_body(http_connection* connection, const char* body, unsigned long length) {
  if (length > kJsonBodyLimit) return nullptr;
  http_request& request = connection->request;
  if (request.tokener == nullptr) {
    request.tokener = json_tokener_new();
    if (request.tokener == nullptr) return nullptr;
    json_tokener_set_flags(request.tokener, JSON_TOKENER_VALIDATE_UTF8);
  }
  json_owner object(
      json_tokener_parse_ex(request.tokener, body == nullptr ? "" : body, static_cast<int>(length)));
  if (object) return object;
  if (json_tokener_get_error(request.tokener) == json_tokener_continue) {
    request.tokener_fed += static_cast<long>(length);
    if (request.tokener_fed < request.content_length) return nullptr;
  }
  json_tokener_free(request.tokener);
  request.tokener = nullptr;
  return nullptr;
}

bool copy_body_text(json_object* object, const char* key, char* text, size_t size) {
  const std::optional<std::string_view> value = text_member(object, key);
  copy_text(text, size, value.value_or(""));
  return value.has_value();
}

std::optional<body_word> body_text(json_object* object, const char* key) {
  body_word word;
  if (!copy_body_text(object, key, word.text, sizeof word.text)) return std::nullopt;
  return word;
}

std::optional<int> body_integer(json_object* object, const char* key) {
  json_object* value = json_member(object, key);
  switch (json_object_get_type(value)) {
    case json_type_boolean:
      return json_object_get_int(value);
    case json_type_string:
      return leading_number(json_object_get_string(value));
    default:
      return body_plain_number(object, key);
  }
}

std::optional<int> body_plain_number(json_object* object, const char* key) {
  json_object* value = json_member(object, key);
  if (json_object_is_type(value, json_type_int)) return json_object_get_int(value);
  const bool is_number =
      json_object_is_type(value, json_type_double) && !std::isnan(json_object_get_double(value));
  return is_number ? std::optional(json_object_get_int(value)) : std::nullopt;
}

std::optional<int> body_text_number(json_object* object, const char* key) {
  const std::optional<std::string_view> text = text_member(object, key);
  return text ? std::optional(number_or_zero(text->data())) : std::nullopt;
}

std::optional<bool> body_flag(json_object* object, const char* key) {
  if (!text_member(object, key)) return std::nullopt;
  return json_object_get_boolean(json_member(object, key)) != 0;
}

json_object* body_parameters(json_object* object) {
  json_object* parameters = json_member(object, "parameters");
  return parameters != nullptr ? parameters : json_member(object, "params");
}

std::optional<int> find_word(std::span<const char* const> words, const char* word) {
  for (size_t i = 0; i < words.size(); ++i) {
    if (strcmp(words[i], word) == 0) return static_cast<int>(i);
  }
  return std::nullopt;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

std::optional<body_word> take_word(http_connection* connection, const char* body, unsigned long length,
                                   const char* key, const char* message) {
  const json_owner object = read_json_body(connection, body, length);
  const std::optional<body_word> word = body_text(object.get(), key);
  if (word) trace(kTraceApi, message, word->text);
  return word;
}

std::optional<int> take_number(http_connection* connection, const char* body, unsigned long length,
                               const char* key, const char* message) {
  const json_owner object = read_json_body(connection, body, length);
  const std::optional<int> number = body_integer(object.get(), key);
  if (number) trace(kTraceApi, message, *number);
  return number;
}

#pragma GCC diagnostic pop
