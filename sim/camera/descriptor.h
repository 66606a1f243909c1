// A file descriptor with an owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace sim_camera {

class descriptor {
 public:
  descriptor() = default;
  explicit descriptor(int fd) : fd_(fd) {}
  descriptor(descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  descriptor& operator=(descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  descriptor(const descriptor&) = delete;
  descriptor& operator=(const descriptor&) = delete;
  ~descriptor() { reset(); }

  // The descriptor, -1 for none.
  int get() const { return fd_; }
  bool open() const { return fd_ >= 0; }
  void reset() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

}  // namespace sim_camera
