// The API of this process, and a client of it.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <string>

#include "api/http_thread.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/thread.h"
#include "tests/await.h"

// The body of the reply; "" when nobody listens. Quotes are written as ' on both ways.
inline std::string ask(const std::string& method, const std::string& path, std::string body = "") {
  std::ranges::replace(body, '\'', '"');
  const unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in server{AF_INET, htons(addresses::kApiPort), {htonl(INADDR_LOOPBACK)}, {}};
  if (connect(fd.get(), reinterpret_cast<sockaddr*>(&server), sizeof server) != 0) return "";
  const std::string request = method + " /api" + path +
                              " HTTP/1.1\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                              body;
  send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL);
  std::string reply(4096, '\0');
  const ssize_t count = recv(fd.get(), reply.data(), reply.size(), MSG_WAITALL);  // until the server closes
  reply.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
  std::ranges::replace(reply, '"', '\'');
  return reply.substr(reply.find("\r\n\r\n") + 4);
}

inline void start_api() {
  constexpr thread_body kServe = [](void*) -> void* { return http_server_thread(), nullptr; };
  start_detached_thread("http", kServe, nullptr);
  await([] { return !ask("GET", "/setup/password").empty(); });
}
