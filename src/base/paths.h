// Every path, address and port of the system. They are constants of the unit and not configurable: tests and
// demos change the world around the daemon, not the daemon.
#pragma once

namespace paths {

inline constexpr char kSystemConfig[] = "/config/system.json";
inline constexpr char kCommandPipe[] = "/var/run/orb/api.fifo";

// Service log, on the internal USB store.
inline constexpr char kTrace[] = "/media/usb99/trace";
inline constexpr char kTraceOld[] = "/media/usb99/trace_old";
inline constexpr char kTraceMask[] = "/media/usb99/trace_mask";

// Settings store.
inline constexpr char kSettingsFolder[] = "/home/orb/nv";
inline constexpr char kSettingsFile0[] = "/home/orb/nv/nv00.json";
inline constexpr char kSettingsFile1[] = "/home/orb/nv/nv01.json";

// Current values, mirrored for other local programs.
inline constexpr char kIntensity[] = "/tmp/intensity";
inline constexpr char kLighting[] = "/tmp/lighting";
inline constexpr char kFocusMode[] = "/tmp/focus_mode";
inline constexpr char kFocusSpeed[] = "/tmp/focus_speed";
inline constexpr char kZoomSpeed[] = "/tmp/zoom_speed";
inline constexpr char kExposureMode[] = "/tmp/exposure_mode";

}  // namespace paths

namespace addresses {

inline constexpr unsigned short kApiPort = 60102;
inline constexpr char kCamera[] = "192.168.0.127";
inline constexpr unsigned short kCameraPort = 1000;  // VISCA over TCP
inline constexpr char kRedis[] = "127.0.0.1";
inline constexpr int kRedisPort = 6379;

}  // namespace addresses
