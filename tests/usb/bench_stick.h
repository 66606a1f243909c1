// The external stick of a test: the folder /run/bench/stick, really mounted. For one source of a program.
#pragma once

#include "installer/installer.h"
#include "tests/kit.h"
#include "usb/stick.h"

inline std::atomic<bool> is_mount_held = false;

// The box can mount no device.
// NOLINTNEXTLINE(misc-definitions-in-headers): it stands in the C library's place
int mount(const char* source, const char* target, const char* type, unsigned long flags,
          const void* data) noexcept {
  if (strncmp(source, "/dev/", 5) != 0)
    return static_cast<int>(syscall(SYS_mount, source, target, type, flags, data));
  await([] { return !is_mount_held; }, 2);
  return static_cast<int>(syscall(SYS_mount, "/run/bench/stick", target, nullptr, MS_BIND, nullptr));
}

inline void plug(bool in) {
  constexpr char kDevice[] = "/dev/usb_ext1";
  if (in) {
    std::ofstream{kDevice};
  } else {
    remove(kDevice);
  }
}
