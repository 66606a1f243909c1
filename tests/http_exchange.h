// A client's sockets, and its requests to the API of the unit.
#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>

#include "tests/kit.h"

// Empty when nobody listens.
inline unique_fd connect_to(unsigned short port) {
  unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in server{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
  if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0) fd.reset();
  return fd;
}

// What is answered until the other side closes.
inline std::string tell(const unique_fd& fd, const std::string& text) {
  send(fd.get(), text.data(), text.size(), MSG_NOSIGNAL);
  std::string answer;
  char block[4096];
  for (ssize_t count; (count = read(fd.get(), block, sizeof block)) > 0;)
    answer.append(block, static_cast<size_t>(count));
  return answer;
}

// The whole reply; "" when nobody listens.
inline std::string http_exchange(const std::string& method, const std::string& path,
                                 const std::string& body) {
  return tell(connect_to(addresses::kApiPort), method + " " + path + " HTTP/1.1\r\nContent-Length: " +
                                                   std::to_string(body.size()) + "\r\n\r\n" + body);
}
