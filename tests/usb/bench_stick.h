// The external stick of a test: the folder /run/bench/stick, really mounted and unmounted. For one source of
// a program.
#pragma once

#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <fstream>

#include "installer/installer.h"
#include "tests/await.h"
#include "usb/stick.h"

inline std::atomic<bool> is_mount_held = false;

// The box can mount no device.
// NOLINTNEXTLINE(misc-definitions-in-headers): it stands in the C library's place
int mount(const char* source, const char* target, const char* type, unsigned long flags,
          const void* data) noexcept {
  const bool is_device = strncmp(source, "/dev/", 5) == 0;
  if (is_device) await([] { return !is_mount_held; }, 2);
  return static_cast<int>(is_device
                              ? syscall(SYS_mount, "/run/bench/stick", target, nullptr, MS_BIND, nullptr)
                              : syscall(SYS_mount, source, target, type, flags, data));
}

inline void plug(bool in) {
  constexpr char kDevice[] = "/dev/usb_ext1";
  if (in) {
    std::ofstream{kDevice};
  } else {
    remove(kDevice);
  }
}
