// Routes that read and write one text of the unit: get_text and put_text, about a text_route that says all
// about it. HTTP thread.
#pragma once

#include <cstddef>

#include "base/json.h"

struct http_connection;

inline constexpr size_t kRouteTextSize = 81;  // of the longest

struct text_route {
  const char* key;    // of the body, and of the answer
  const char* label;  // in the trace
  size_t size;        // of the buffer: longer texts are cut to size - 1 characters
  void (*load)(char* text, size_t size);
  int (*set)(const char* text);  // negative: refused
  bool is_optional = false;      // without its member nothing is set, and the answer is "OK"
};

// For a setter that refuses nothing.
template <void (*Set)(const char* text)>
int set_any(const char* text) {
  Set(text);
  return 0;
}

int get_text(http_connection* connection, const text_route& route);
int put_text(http_connection* connection, json_object* body, const text_route& route);
