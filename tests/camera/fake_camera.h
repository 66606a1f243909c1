// The camera block's end of the link, as the test plays it, and the daemon's end stepped by the test.
#pragma once

#include <arpa/inet.h>
#include <ev.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "app/trace.h"
#include "base/clock.h"
#include "base/file.h"
#include "base/paths.h"
#include "camera/visca_connection.h"
#include "camera/visca_thread.h"

using strings = std::vector<std::string>;

inline std::string hex(const std::vector<uint8_t>& bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    for (const int digit : {byte >> 4, byte & 15}) text += "0123456789ABCDEF"[digit];
  }
  return text;
}

inline std::vector<uint8_t> unhex(const std::string& text) {
  std::string digits;
  for (const char c : text) {
    if (c != ' ') digits += c;
  }
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

inline bool eventually(const std::function<bool()>& holds, int timeout_ms = 3000) {
  for (const int64_t end = monotonic_ns() + timeout_ms * kNanosecondsPerMillisecond; !holds(); sleep_ms(2)) {
    if (monotonic_ns() > end) return false;
  }
  return true;
}

inline std::string file_text(const char* path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void start_trace(std::initializer_list<int> levels) {
  uint32_t mask = 0;
  for (const int level : levels) mask |= 1U << level;
  set_trace_mask(mask);
  init_trace();
}

// The messages under a tag so far, without their time; sent and received bytes left out.
inline strings traces(const std::string& tag) {
  std::ifstream file(paths::kTrace);
  strings messages;
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(tag + ": ")) continue;
    const std::string text = line.substr(tag.size() + 2, line.rfind(" [") - tag.size() - 2);
    if (!text.starts_with(' ') && text != "sending:" && text != "read:") messages.push_back(text);
  }
  return messages;
}

inline bool traced(const std::string& tag, const std::string& message) {
  const strings all = traces(tag);
  return std::find(all.begin(), all.end(), message) != all.end();
}

class fake_camera {
 public:
  explicit fake_camera(int backlog = 4) : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    const int on = 1;
    setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(addresses::kCameraPort);
    inet_pton(AF_INET, addresses::kCamera, &at.sin_addr);
    EXPECT_EQ(bind(listener_.get(), reinterpret_cast<sockaddr*>(&at), sizeof at), 0);
    EXPECT_EQ(listen(listener_.get(), backlog), 0);
  }

  bool accept_link(int timeout_ms = 3000) {
    if (!readable(listener_.get(), timeout_ms)) return false;
    stream_.reset(accept(listener_.get(), nullptr, nullptr));
    received_.clear();
    return static_cast<bool>(stream_);
  }

  void hang_up(bool reset = false) {
    const linger at_once{1, 0};
    if (reset) setsockopt(stream_.get(), SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    stream_.reset();
  }

  void say(const std::string& bytes) {
    const std::vector<uint8_t> raw = unhex(bytes);
    EXPECT_EQ(send(stream_.get(), raw.data(), raw.size(), MSG_NOSIGNAL), static_cast<ssize_t>(raw.size()));
  }

  // The next packet; "" when none comes in time, "closed" when the daemon has let the link go.
  std::string packet(int timeout_ms = 3000) {
    for (;;) {
      const auto end = std::find(received_.begin(), received_.end(), kViscaTerminator);
      if (end != received_.end()) {
        const std::vector<uint8_t> found(received_.begin(), end + 1);
        received_.erase(received_.begin(), end + 1);
        return hex(found);
      }
      if (!readable(stream_.get(), timeout_ms)) return "";
      uint8_t buffer[4096];
      const ssize_t count = recv(stream_.get(), buffer, sizeof buffer, 0);
      if (count <= 0) return "closed";
      received_.insert(received_.end(), buffer, buffer + count);
    }
  }

  // The same without the interface clears that a slow machine may cause.
  std::string command(int timeout_ms = 3000) {
    std::string next;
    do next = packet(timeout_ms);
    while (next == "81010001FF");
    return next;
  }

 private:
  static bool readable(int fd, int timeout_ms) {
    pollfd wait{fd, POLLIN, 0};
    return poll(&wait, 1, timeout_ms) == 1;
  }

  unique_fd listener_, stream_;
  std::vector<uint8_t> received_;
};

// A link whose camera thread is the test: nothing happens on it between two steps.
struct stepped_link {
  fake_camera block;
  struct ev_loop* loop = ev_loop_new(EVBACKEND_POLL);
  visca_connection* connection =
      visca_connection_create(loop, addresses::kCamera, addresses::kCameraPort, 5000);
  visca_camera* camera = visca_connection_add_camera(connection, 1, 0);

  stepped_link() {
    EXPECT_TRUE(eventually([&] { return visca_connection_poll(connection), connection->connected == 1; }));
    EXPECT_TRUE(block.accept_link());
  }
  ~stepped_link() {
    visca_connection_destroy(connection);
    ev_loop_destroy(loop);
  }
  stepped_link(const stepped_link&) = delete;
  stepped_link& operator=(const stepped_link&) = delete;

  // One read of the camera thread.
  void hear(const std::string& bytes) const {
    const std::vector<uint8_t> raw = unhex(bytes);
    visca_connection_receive(connection, raw.data(), raw.size());
  }

  // The next packet, acknowledged.
  std::string obey(int timeout_ms = 3000) {
    std::string packet = block.packet(timeout_ms);
    if (!packet.empty()) hear("9041FF");
    return packet;
  }
};

// One that the controller and the API take for the camera thread's.
struct controlled_link : stepped_link {
  controlled_link() {
    visca_thread_data.connection = connection;
    visca_thread_data.camera = camera;
  }

  // The next packet, between 8x 01 04 and FF; nothing is awaited for "".
  void expect(const std::string& bytes) {
    if (!bytes.empty()) {
      EXPECT_EQ(obey(), "810104" + bytes + "FF");
    }
  }
};
