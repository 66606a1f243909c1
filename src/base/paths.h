// Every path, address and port of the system. They are constants of the unit and not configurable: tests and
// demos change the world around the daemon, not the daemon.
#pragma once

namespace paths {

inline constexpr char kSystemConfig[] = "/config/system.json";
inline constexpr char kRelease[] = "/opt/nork/ORB_RELEASE";
inline constexpr char kRunFolder[] = "/var/run/orb";
inline constexpr char kCommandPipe[] = "/var/run/orb/api.fifo";

// Service log, on the internal USB store.
inline constexpr char kTrace[] = "/media/usb99/trace";
inline constexpr char kTraceOld[] = "/media/usb99/trace_old";
inline constexpr char kTraceMask[] = "/media/usb99/trace_mask";

// Settings store.
inline constexpr char kSettingsFolder[] = "/home/orb/nv";
inline constexpr char kSettingsFile0[] = "/home/orb/nv/nv00.json";
inline constexpr char kSettingsFile1[] = "/home/orb/nv/nv01.json";

// Data logger. The dated files, and the mark on the external stick that asks for a reset.
inline constexpr char kLoggerFolder[] = "/home/orb/logger";
inline constexpr char kLoggerFile0[] = "/home/orb/logger/log0.json";
inline constexpr char kLoggerFile1[] = "/home/orb/logger/log1.json";
inline constexpr char kUsbLogs[] = "/media/usb99/ApiLogs";
inline constexpr char kLoggerResetMark[] = "/media/usb-cpy/orb_log_reset.txt";

// Takes. The internal store holds what is being recorded, the USB store what is finished.
inline constexpr char kVideos[] = "/home/orb/Videos";
inline constexpr char kInternalTakes[] = "/home/orb/ApiVideos";
inline constexpr char kUsbTakes[] = "/media/usb99/ApiVideos";
inline constexpr char kTakeGuid[] = "/home/orb/ApiVideos/guid";
inline constexpr char kSaveTimes[] = "/home/orb/ApiVideos/save_times";
inline constexpr char kImageNotes[] = "/home/orb/ApiVideos/image_notes";
inline constexpr char kVideoNote[] = "/tmp/video_note";  // waits for the next take
inline constexpr char kImageNote[] = "/tmp/image_note";  // waits for the next mark
inline constexpr char kXmpTemporary[] = "/media/usb99/ApiVideos/temp";
inline constexpr char kXmpUndoName[] = "xmp_undo";  // in the folder of the file that is written
inline constexpr char kXmpTemplate[] = "/opt/nork/bin/xmp_template.txt";
inline constexpr char kImageCache[] = "/tmp/imagecache";
inline constexpr char kImageCacheTemporary[] = "/tmp/imagecache.new";

// What the version-1.0 listing looks at.
inline constexpr char kUsbVideos[] = "/media/usb99/video";

// Updates: archives on the USB stick, and what the deploy script last said.
inline constexpr char kUpdateArchives[] = "/media/usb-cpy/orb_733-00158_update_*.zip";
inline constexpr char kUpdateStatus[] = "/tmp/orb_update";

// Programs that are run.
inline constexpr char kFfmpeg[] = "/bin/ffmpeg";
inline constexpr char kFfprobe[] = "/bin/ffprobe";
inline constexpr char kShell[] = "/bin/sh";
inline constexpr char kDeployScript[] = "/opt/nork/scripts/deploy_update.sh";

// Current values, mirrored for other local programs.
inline constexpr char kIntensity[] = "/tmp/intensity";
inline constexpr char kLighting[] = "/tmp/lighting";
inline constexpr char kFocusMode[] = "/tmp/focus_mode";
inline constexpr char kFocusSpeed[] = "/tmp/focus_speed";
inline constexpr char kZoomSpeed[] = "/tmp/zoom_speed";
inline constexpr char kExposureMode[] = "/tmp/exposure_mode";
inline constexpr char kCameraSignal[] = "/tmp/camera_signal";  // 0: the camera answers
inline constexpr char kLensTemperature[] = "/tmp/lens_temp";
inline constexpr char kFpgaTemperature[] = "/tmp/fpga_temp";
inline constexpr char kCpuTemperature[] = "/tmp/cpu_temp";
inline constexpr char kChannel1Status[] = "/tmp/channel_1_status";
inline constexpr char kChannel2Status[] = "/tmp/channel_2_status";

// Written by other local programs.
inline constexpr char kRecording[] = "/tmp/recording";  // 1: another program records
inline constexpr char kPaused[] = "/tmp/paused";

// External USB stick.
inline constexpr char kStickDevice[] = "/dev/usb_ext1";
inline constexpr char kStick[] = "/media/usb-cpy";
inline constexpr char kStickStatistics[] = "/sys/block/sdb/stat";

}  // namespace paths

namespace addresses {

inline constexpr unsigned short kApiPort = 60102;
inline constexpr char kCamera[] = "192.168.0.127";
inline constexpr unsigned short kCameraPort = 1000;  // VISCA over TCP
inline constexpr unsigned short kEncoderRtspPort = 554;
inline constexpr unsigned short kEncoderHttpPort = 80;
inline constexpr char kRedis[] = "127.0.0.1";
inline constexpr int kRedisPort = 6379;

}  // namespace addresses
