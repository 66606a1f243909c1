#include "sim/camera/link_server.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace sim_camera {
namespace {

constexpr size_t kMaxClients = 8;

bool listen_again(link_server& server) {
  descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const int on = 1;
  setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const auto* address = reinterpret_cast<const sockaddr*>(&server.address);
  if (bind(listener.get(), address, sizeof server.address) != 0 || listen(listener.get(), kMaxClients) != 0) {
    std::fprintf(stderr, "sim_camera: no VISCA port: %s\n", std::strerror(errno));
    return false;
  }
  server.listener = std::move(listener);
  return true;
}

void accept_client(link_server& server, bench_camera& camera) {
  descriptor client(accept4(server.listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!client.open()) return;
  const int on = 1;
  setsockopt(client.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (server.clients.size() == kMaxClients) server.clients.erase(server.clients.begin());
  server.clients.push_back(std::move(client));
  block_new_link(camera.block);
}

void close_client(link_server& server, bench_camera& camera, size_t index) {
  const bool was_heard = index + 1 == server.clients.size();
  server.clients.erase(server.clients.begin() + static_cast<std::ptrdiff_t>(index));
  if (was_heard) block_new_link(camera.block);
}

void read_client(link_server& server, bench_camera& camera, size_t index) {
  std::array<uint8_t, 4096> bytes;
  const ssize_t got = recv(server.clients[index].get(), bytes.data(), bytes.size(), 0);
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (got <= 0) return close_client(server, camera, index);
  if (index + 1 == server.clients.size()) {
    block_receive(camera.block, std::span(bytes).first(static_cast<size_t>(got)), camera.now_ms);
  }
}

void send_output(link_server& server, bench_camera& camera) {
  for (const packet& segment : block_take_output(camera.block, camera.now_ms)) {
    if (server.clients.empty()) continue;
    const ssize_t sent = send(server.clients.back().get(), segment.data(), segment.size(), MSG_NOSIGNAL);
    // A controller that has not read for so long that its socket is full is as good as gone.
    if (sent != static_cast<ssize_t>(segment.size())) close_client(server, camera, server.clients.size() - 1);
  }
}

}  // namespace

bool link_open(link_server& server, const char* address, int port) {
  server.address.sin_family = AF_INET;
  server.address.sin_port = htons(static_cast<uint16_t>(port));
  if (inet_pton(AF_INET, address, &server.address.sin_addr) != 1) {
    std::fprintf(stderr, "sim_camera: '%s' is no IPv4 address\n", address);
    return false;
  }
  return listen_again(server);
}

void link_watch(const link_server& server, std::vector<pollfd>& watched) {
  if (server.listener.open()) watched.push_back({server.listener.get(), POLLIN, 0});
  for (const descriptor& client : server.clients) watched.push_back({client.get(), POLLIN, 0});
}

void link_ready(link_server& server, bench_camera& camera, int fd) {
  if (server.listener.get() == fd) return accept_client(server, camera);
  for (size_t i = 0; i < server.clients.size(); ++i) {
    if (server.clients[i].get() == fd) return read_client(server, camera, i);
  }
}

void link_settle(link_server& server, bench_camera& camera) {
  send_output(server, camera);
  if (std::exchange(camera.drop_requested, false) && !server.clients.empty()) {
    server.clients.clear();
    block_new_link(camera.block);
  }
  if (camera.refuse_connect) {
    server.listener.reset();
  } else if (!server.listener.open() && !listen_again(server)) {
    camera.refuse_connect = true;
  }
}

}  // namespace sim_camera
