#include "http/json_body.h"

#include <cmath>

#include "base/text.h"
#include "base/trace.h"
#include "http/server.h"

json_owner read_json_body(http_connection* connection, const char* body, unsigned long length) {
  // Small nested arrays take some fifty times their text as objects.
  constexpr unsigned long kLimit = 1 << 20;
  if (length > kLimit) return nullptr;
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

std::optional<body_word> take_word(json_object* object, const char* key, const char* label) {
  const std::optional<body_word> word = body_text(object, key);
  if (word) trace(kTraceApi, "%s '%s'", label, word->text);
  return word;
}

std::optional<int> take_choice(json_object* object, const char* key, const char* label,
                               std::span<const char* const> words) {
  const std::optional<body_word> word = take_word(object, key, label);
  return word ? find_word(words, word->text) : std::nullopt;
}

std::optional<int> take_number(json_object* object, const char* key, const char* label) {
  const std::optional<int> number = body_integer(object, key);
  if (number) trace(kTraceApi, "%s %d", label, *number);
  return number;
}
