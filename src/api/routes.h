// The HTTP server thread and its route table.
#pragma once

#include <span>

#include "http/server.h"

inline constexpr int kHttpConnections = 15;

struct http_route_row {
  const char* method;
  const char* path;  // prefix
  http_handler handler;
  void* user_data;
};

// The routes in registration order; the first that fits a request takes it, so a longer path stands before a
// shorter one that begins it.
std::span<const http_route_row> http_routes();

// The thread's body: prepares the state that the handlers share, registers the routes and serves for ever.
// Returns -1 when the server cannot be created; the rest of the unit goes on without an API.
int http_server_thread();
