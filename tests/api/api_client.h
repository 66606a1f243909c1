// The API of this process, and a client of it.
#pragma once

#include "api/http_thread.h"
#include "base/thread.h"
#include "tests/http_exchange.h"
#include "tests/kit.h"

// The body of the reply; "" when nobody listens. Quotes are written as ' on both ways.
inline std::string ask(const std::string& method, const std::string& path, std::string body = "") {
  std::ranges::replace(body, '\'', '"');
  std::string reply = http_exchange(method, "/api" + path, body);
  std::ranges::replace(reply, '"', '\'');
  return reply.substr(std::min(reply.size(), reply.find("\r\n\r\n") + 4));
}

inline void start_api() {
  constexpr thread_body kServe = [](void*) -> void* { return http_server_thread(), nullptr; };
  start_detached_thread("http", kServe, nullptr);
  await([] { return !ask("GET", "/setup/password").empty(); });
}
