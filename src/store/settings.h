// The settings store: the operator's persistent choices, each saved at once to one of two alternating files
// ("/home/orb/nv/nv00.json", "nv01.json") and flushed. Any thread; who writes waits for the disk, who reads
// never does: a read tells what is being saved.
#pragma once

#include <cstdint>
#include <span>

// A flag is 0 or 1. The store keeps what it is given; who uses a number takes one outside its range for the
// default.
enum setting_index : uint32_t {
  kSettingDateTimeOsd = 0,
  kSettingOperatorIdOsd = 1,
  kSettingTitleOsd = 2,
  kSettingFlowDirectionOsd = 3,
  kSettingZoomOsd = 4,
  kSettingCompassOsd = 5,
  kSettingViewerSeats = 6,  // 0 to 5 (seats/seats.h)
  kSettingLanguage = 7,     // text, 3 bytes
  kSettingInvertImage = 8,
  kSettingStabilizeImage = 9,
  kSettingSensitivity = 10,    // 0 normal, 1 high
  kSettingIrFilter = 11,       // 0 off, 1 on, 2 auto
  kSettingDefog = 12,          // 0 off to 3 high
  kSettingOperatorId = 13,     // text, 41 bytes
  kSettingTitle = 14,          // text, 41 bytes
  kSettingFlowDirection = 15,  // text, 19 bytes
  kSettingOsdColor = 16,       // 0 to 6 (osd/osd.h)
  kSettingOsdDelay = 17,       // seconds, 0 to 999
  kSettingHighBeamTime = 18,   // seconds, 0 to 30
  kSettingPbSuspended = 19,
  kSettingUnits = 20,  // 1 imperial, else metric
  kSettingMagnetometerCalibrated = 21,
  kSettingMagnetometerX = 22,  // 22 to 33: doubles, offsets x, y, z and the 3 by 3 matrix row by row
  kSettingCount = 34,
};

// Loads the newer valid file, or the defaults and saves them. Called once, before any other thread runs.
void orb_init_nv();

// The key of setting `index` (below 34) in the files and, where a route takes it by this name, in the API.
const char* setting_key(uint32_t index);

// Copies setting `index` into `buffer` of `length` bytes: shorter buffers get the first bytes, longer ones
// the setting with zeros after it. An index above 33 does nothing.
void orb_read_nv(uint32_t index, void* buffer, int32_t length);

// The same for several, as they stand at one moment.
struct nv_target {
  uint32_t index = 0;
  void* buffer = nullptr;
  int32_t length = 0;
};
void read_nv(std::span<const nv_target> settings);

// Stores `length` bytes as setting `index` (fewer than its size: zeros fill the rest; more: the rest is
// dropped) and saves the whole record before it returns. An index above 33 does nothing; failures are only
// traced.
void orb_write_nv(uint32_t index, const void* buffer, int32_t length);

// The same for several, in one save: a power cut leaves all of them or none.
struct nv_source {
  uint32_t index = 0;
  const void* buffer = nullptr;
  int32_t length = 0;
};
void write_nv(std::span<const nv_source> settings);
