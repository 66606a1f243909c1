#include "sim/camera/encoder_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace sim_camera {
namespace {

constexpr size_t kMaxClients = 8;
constexpr size_t kMaxRequest = 4096;
constexpr char kStatisticsPage[] = "ctrl=stats";
constexpr char kOtherPage[] = "OK";

// Both channels' words, in turn.
std::string statistics(const encoder_state& state) {
  const char* const first[] = {"1920x1080", "640x360"};
  std::string words;
  for (size_t i = 0; i < 2; ++i) words += std::string(state.channels[i] ? first[i] : "no") + " ";
  for (size_t i = 0; i < 2; ++i) words += state.channels[i] ? "15fps " : "signal ";
  words.pop_back();
  return R"({"encoder_status_str":")" + words + R"(","temp_status_str":"+LENS )" +
         std::to_string(state.lens) + " +FPGA " + std::to_string(state.fpga) + " +CPU " +
         std::to_string(state.cpu) + "\"}";
}

std::string response(const encoder_state& state, const std::string& request) {
  if (state.not_found) return "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n";
  const bool is_statistics = request.find(kStatisticsPage) != std::string::npos;
  const std::string body = is_statistics ? statistics(state) : kOtherPage;
  std::string text = "HTTP/1.1 200 OK\r\n";
  if (!state.no_length) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  return text + "\r\n" + body.substr(0, state.cut ? body.size() / 2 : body.size());
}

// Whether the client is done with. A request has no body; a silent encoder swallows it.
bool serve(encoder_client& client, const encoder_state& state) {
  std::array<char, 1024> bytes;
  const ssize_t got = recv(client.socket.get(), bytes.data(), bytes.size(), 0);
  if (got < 0 && (errno == EAGAIN || errno == EINTR)) return false;
  if (got <= 0 || client.received.size() > kMaxRequest) return true;
  client.received.append(bytes.data(), static_cast<size_t>(got));
  const size_t end = client.received.find("\r\n\r\n");
  if (end == std::string::npos) return false;
  const std::string request = client.received.substr(0, end);
  client.received.erase(0, end + 4);
  if (state.silent) return false;
  const std::string text = response(state, request);
  const ssize_t sent = send(client.socket.get(), text.data(), text.size(), MSG_NOSIGNAL);
  return state.cut || sent != static_cast<ssize_t>(text.size());
}

void accept_client(encoder_server& server) {
  descriptor socket(accept4(server.listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (!socket.open()) return;
  if (server.clients.size() == kMaxClients) server.clients.erase(server.clients.begin());
  server.clients.push_back({std::move(socket), {}});
}

}  // namespace

bool encoder_open(encoder_server& server, const char* address, int port) {
  descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const int on = 1;
  setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<uint16_t>(port));
  if (inet_pton(AF_INET, address, &to.sin_addr) != 1 ||
      bind(listener.get(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0 ||
      listen(listener.get(), kMaxClients) != 0) {
    std::fprintf(stderr, "sim_camera: no encoder port: %s\n", std::strerror(errno));
    return false;
  }
  server.listener = std::move(listener);
  return true;
}

void encoder_watch(const encoder_server& server, std::vector<pollfd>& watched) {
  watched.push_back({server.listener.get(), POLLIN, 0});
  for (const encoder_client& client : server.clients) watched.push_back({client.socket.get(), POLLIN, 0});
}

void encoder_ready(encoder_server& server, const encoder_state& state, int fd) {
  if (server.listener.get() == fd) return accept_client(server);
  std::erase_if(server.clients,
                [&](encoder_client& client) { return client.socket.get() == fd && serve(client, state); });
}

}  // namespace sim_camera
