// What a route is made of. To add one, edit one file, that of its URLs (*_routes.cpp):
//  1. its handler, in the unnamed namespace: a function of the connection; then, if it reads the request's
//     body, of `json_object* body` (null when it is no JSON; http/json_body.h reads its members) or of the
//     bytes; then of what else its row says. It answers through http/response.h and returns 0;
//  2. its place in kPaths, behind its path: `get<function, what it is about...>`, put or post. The server
//     takes the first row that fits a request, so a longer path stands before a shorter one that begins it.
//     A handler that waits for a disk, a stick or the network gets a lane: `put<...>.in(store_lane)`;
//  3. the counts under kPaths.
// A handler that lost its place does not compile: it is an unused function. A new file of URLs is one more
// group in routes.h and routes.cpp.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>
#include <type_traits>

#include "http/json_body.h"
#include "http/lane.h"
#include "http/server.h"

struct http_route_row {
  const char* method;
  const char* path;  // prefix
  http_handler handler;
  http_lane* lane;  // who calls it; null: the HTTP thread
};

// What stores something, in the order of asking: settings, takes from start to stop, notes of a running take.
extern http_lane store_lane;

// What looks at stored files or asks Redis, and what changes a file that is finished.
extern http_lane files_lane;

// The rows of a group of URLs, in their order.
using route_group = std::span<const http_route_row>;

// Makes a handler of a function and of constants that it is about. HTTP thread, or its row's lane.
template <auto Function, const auto&... About>
int handler(http_connection* connection, const char* body, unsigned long length, void*) {
  using function = decltype(Function);
  if constexpr (std::is_invocable_v<function, http_connection*, decltype(About)...>) {
    return Function(connection, About...);
  } else if constexpr (std::is_invocable_v<function, http_connection*, json_object*, decltype(About)...>) {
    return Function(connection, read_json_body(connection, body, length).get(), About...);
  } else {
    return Function(connection, body, length, About...);
  }
}

struct method_handler {
  const char* method;
  http_handler function;
  http_lane* lane = nullptr;

  constexpr method_handler in(http_lane& its_lane) const { return {method, function, &its_lane}; }
};

template <auto Function, const auto&... About>
constexpr method_handler get{"GET", handler<Function, About...>};
template <auto Function, const auto&... About>
constexpr method_handler put{"PUT", handler<Function, About...>};
template <auto Function, const auto&... About>
constexpr method_handler post{"POST", handler<Function, About...>};

// A path with the handlers of its methods.
struct http_path {
  const char* path;
  method_handler first, second{}, third{};
};

// A row that goes missing takes its requests to another route without a word, so each file counts its own
// where it is compiled. The sum, which tells a missing group, is a test's: no file sees all rows.
struct route_counts {
  size_t get = 0, put = 0, post = 0;
  bool operator==(const route_counts&) const = default;
};

constexpr route_counts count_rows(route_group rows) {
  const auto of = [rows](std::string_view method) {
    const auto has_method = [method](const http_route_row& row) { return row.method == method; };
    return static_cast<size_t>(std::ranges::count_if(rows, has_method));
  };
  return {of("GET"), of("PUT"), of("POST")};
}

// The rows of a group, in the order of its paths. Compiles with the right counts only.
template <const auto& Paths, route_counts Counts>
constexpr auto kRows = [] {
  std::array<http_route_row, Counts.get + Counts.put + Counts.post> rows{};
  auto row = rows.begin();
  for (const http_path& path : Paths) {
    for (const method_handler& handler : {path.first, path.second, path.third})
      if (handler.method != nullptr) *row++ = {handler.method, path.path, handler.function, handler.lane};
  }
  return count_rows(rows) == Counts ? rows : throw "the counts are others";
}();
