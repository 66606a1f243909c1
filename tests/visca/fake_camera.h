// The camera block's end of the link, as the test plays it, and the daemon's end stepped by the test.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include "base/trace_reader.h"
#include "visca/camera_thread.h"

using strings = std::vector<std::string>;

inline std::string hex(const std::vector<uint8_t>& bytes) {
  std::string text;
  for (const uint8_t byte : bytes)
    for (const int digit : {byte >> 4, byte & 15}) text += "0123456789ABCDEF"[digit];
  return text;
}

inline std::vector<uint8_t> unhex(std::string text) {
  std::erase(text, ' ');
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < text.size(); i += 2)
    bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
  return bytes;
}

inline strings words(const std::string& text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

inline std::string file_text(const char* path) { return read_file(path, 100).value_or(""); }

inline bool traced(const std::string& tag, const std::string& messages) {
  return await([&] { return traces(tag).ends_with(messages); });
}

class fake_camera {
 public:
  explicit fake_camera(int backlog = 4) : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in at{AF_INET, htons(addresses::kCameraPort), {inet_addr(addresses::kCamera)}, {}};
    EXPECT_EQ(bind(listener_.get(), reinterpret_cast<sockaddr*>(&at), sizeof at), 0);
    EXPECT_EQ(listen(listener_.get(), backlog), 0);
  }

  bool accept_link(int timeout_ms = 3000) {
    if (!readable(listener_, timeout_ms)) return false;
    stream_.reset(accept(listener_.get(), nullptr, nullptr));
    received_.clear();
    return true;
  }

  void hang_up(bool reset = false) {
    const linger at_once{reset, 0};
    setsockopt(stream_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    stream_.reset();
  }

  void say(const std::string& bytes) {
    const std::vector<uint8_t> raw = unhex(bytes);
    EXPECT_EQ(send(stream_.get(), raw.data(), raw.size(), MSG_NOSIGNAL), static_cast<ssize_t>(raw.size()));
  }

  const unique_fd& stream() const { return stream_; }

  // The next packet; "" when none comes in time, "closed" when the daemon has let the link go.
  std::string packet(int timeout_ms = 3000) {
    for (;;) {
      const auto end = std::ranges::find(received_, kViscaTerminator);
      if (end != received_.end()) {
        const std::vector<uint8_t> found(received_.begin(), end + 1);
        received_.erase(received_.begin(), end + 1);
        return hex(found);
      }
      if (!readable(stream_, timeout_ms)) return "";
      uint8_t buffer[4096];
      const ssize_t count = recv(stream_.get(), buffer, sizeof buffer, 0);
      if (count <= 0) return "closed";
      received_.insert(received_.end(), buffer, buffer + count);
    }
  }

 private:
  static bool readable(const unique_fd& fd, int timeout_ms) {
    pollfd wait{fd.get(), POLLIN, 0};
    return poll(&wait, 1, timeout_ms) == 1;
  }

  unique_fd listener_, stream_;
  std::vector<uint8_t> received_;
};

// A link whose camera thread is the test: nothing happens on it between two steps. The controller and the API
// take it for the real one.
struct stepped_link {
  fake_camera block;
  struct ev_loop* loop = ev_loop_new(EVBACKEND_POLL);
  visca_connection* connection =
      visca_connection_create(loop, addresses::kCamera, addresses::kCameraPort, 5000);
  visca_camera* camera = visca_connection_add_camera(connection, 1, 0);

  stepped_link() {
    EXPECT_TRUE(await([&] { return visca_connection_poll(connection), connection->connected == 1; }));
    EXPECT_TRUE(block.accept_link());
    visca_thread_data.connection = connection;
    visca_thread_data.camera = camera;
  }
  ~stepped_link() {
    visca_connection_destroy(connection);
    ev_loop_destroy(loop);
  }

  void hear(const std::string& bytes) const {
    const std::vector<uint8_t> raw = unhex(bytes);
    visca_connection_receive(connection, raw.data(), raw.size());
  }

  // The packets that come next, each between 8x 01 04 and FF and acknowledged.
  void expect(const std::string& packets) {
    for (const std::string& bytes : words(packets)) {
      EXPECT_EQ(block.packet(), "810104" + bytes + "FF");
      hear("9041FF");
    }
  }
};
