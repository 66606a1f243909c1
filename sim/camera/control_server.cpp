#include "sim/camera/control_server.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "sim/camera/control_commands.h"

namespace sim_camera {
namespace {

constexpr size_t kMaxClients = 8;
constexpr size_t kMaxLine = 256;

void accept_client(control_server& server) {
  descriptor socket(accept4(server.listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!socket.open()) return;
  if (server.clients.size() == kMaxClients) server.clients.erase(server.clients.begin());
  server.clients.push_back({std::move(socket), {}});
}

// Whether the client is done with: answered, gone or talking nonsense.
bool serve(control_client& client, bench_camera& camera) {
  std::array<char, kMaxLine> bytes;
  const ssize_t got = recv(client.socket.get(), bytes.data(), bytes.size(), 0);
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return false;
  if (got > 0) client.line.append(bytes.data(), static_cast<size_t>(got));
  const size_t end = client.line.find('\n');
  // A client that shuts down its side without a line end has still said what it wants.
  const bool whole = end != std::string::npos || (got == 0 && !client.line.empty());
  if (!whole) return got <= 0 || client.line.size() > kMaxLine;
  const std::string reply = control_execute(camera, std::string_view(client.line).substr(0, end));
  // The longest reply (the log) fits the socket's buffer, so this never waits.
  send(client.socket.get(), reply.data(), reply.size(), MSG_NOSIGNAL);
  return true;
}

}  // namespace

bool control_open(control_server& server, const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  descriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const bool fits = path.size() < sizeof address.sun_path;
  if (fits) std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  unlink(path.c_str());
  if (!fits || bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      listen(listener.get(), kMaxClients) != 0) {
    std::fprintf(stderr, "sim_camera: no control socket %s: %s\n", path.c_str(),
                 fits ? std::strerror(errno) : "path too long");
    return false;
  }
  server.listener = std::move(listener);
  return true;
}

void control_watch(const control_server& server, std::vector<pollfd>& watched) {
  watched.push_back({server.listener.get(), POLLIN, 0});
  for (const control_client& client : server.clients) watched.push_back({client.socket.get(), POLLIN, 0});
}

void control_ready(control_server& server, bench_camera& camera, int fd) {
  if (server.listener.get() == fd) return accept_client(server);
  std::erase_if(server.clients,
                [&](control_client& client) { return client.socket.get() == fd && serve(client, camera); });
}

}  // namespace sim_camera
