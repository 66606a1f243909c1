// Routes that read and write one text of the unit: a row says all about one, and the row makes its two
// handlers. HTTP server thread.
#pragma once

#include <cstddef>

#include "http/server.h"

inline constexpr size_t kRouteTextSize = 81;  // of the longest

struct text_route {
  const char* key;      // of the body, and of the answer
  const char* message;  // its label in the trace
  size_t size;          // of the buffer: longer texts are cut to size - 1 characters
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

int send_text(http_connection* connection, const text_route& route);
int store_text(http_connection* connection, const char* body, unsigned long length, const text_route& route);

template <const text_route& Route>
int get_text(http_connection* connection, const char*, unsigned long, void*) {
  return send_text(connection, Route);
}

template <const text_route& Route>
int put_text(http_connection* connection, const char* body, unsigned long length, void*) {
  return store_text(connection, body, length, Route);
}
