#include "xmp/media_scan.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include "xmp/packet.h"

namespace {

constexpr size_t kBlockSize = 32;
constexpr int kMostBlocks = 200'000;  // 0.2 s: no real file has so many markers or boxes

class block_reader {
 public:
  block_reader(int fd, bool* was_read) : fd_(fd), was_read_(was_read) {}

  // The block that begins at `position`, shorter at the end of the file; valid until the next call.
  std::span<const uint8_t> load(int64_t position) {
    if (position != position_) {
      const bool allowed = blocks_ < kMostBlocks;
      const ssize_t count = allowed ? pread(fd_, block_.data(), kBlockSize, position) : 0;
      if (count < 0) *was_read_ = false;
      count_ = static_cast<size_t>(std::max<ssize_t>(count, 0));
      position_ = position;
      ++blocks_;
    }
    return {block_.data(), count_};
  }

 private:
  int fd_;
  bool* was_read_;
  int64_t position_ = -1;
  size_t count_ = 0;
  int blocks_ = 0;
  std::array<uint8_t, kBlockSize> block_{};
};

uint64_t big_endian(std::span<const uint8_t> bytes) {
  uint64_t value = 0;
  for (const uint8_t byte : bytes) value = value << 8 | byte;
  return value;
}

bool begins_with(std::span<const uint8_t> block, std::string_view text) {
  return block.size() >= text.size() && memcmp(block.data(), text.data(), text.size()) == 0;
}

// --- JPEG ---

enum : uint8_t {
  kSof0 = 0xC0,
  kSof2 = 0xC2,
  kDht = 0xC4,
  kSos = 0xDA,
  kDqt = 0xDB,
  kApp1 = 0xE1,
  kFill = 0xFF
};

// What is skipped by its length; behind every other marker the search goes on at once.
bool is_segment(uint8_t marker) {
  return marker == kSof0 || marker == kSof2 || marker == kDht || marker == kDqt ||
         (marker >= 0xE0 && marker <= 0xFE);
}

// Behind JFIF's APP0, and in front of everything else: APP2 to APP15, comments, the tables.
bool can_follow_packet(uint8_t marker) {
  return marker == kDqt || (marker >= 0xE2 && marker <= 0xEF) || (marker >= 0xF2 && marker <= 0xFE);
}

// The next 0xFF from `position` on, -1 when there is none.
int64_t find_marker(block_reader& reader, int64_t position) {
  for (;;) {
    const auto block = reader.load(position);
    if (block.empty()) return -1;
    const auto found = std::find(block.begin(), block.end(), 0xFF);
    if (found != block.end()) return position + (found - block.begin());
    position += static_cast<int64_t>(block.size());
  }
}

// A packet goes before the last APP1 of another kind (Exif), else before what first can follow it.
xmp_place scan_jpeg(int fd, int64_t size) {
  xmp_place place;
  block_reader reader(fd, &place.was_read);
  int64_t position = 0;
  while ((position = find_marker(reader, position)) >= 0) {
    const auto block = reader.load(position);
    if (block.size() < 4 || block[1] == kSos) break;
    const uint8_t marker = block[1];
    const auto length = static_cast<int64_t>(big_endian(block.subspan(2, 2)));  // with its own two bytes
    const int64_t segment = position + 2;
    if (marker == kApp1) {
      if (segment + length <= size && length - 2 >= static_cast<int64_t>(kXmpSignature.size()) &&
          begins_with(reader.load(segment + 2), kXmpSignature))
        return {.packet = segment + 2, .length = length - 2};
      place.insertion = position;
    } else if (place.insertion < 0 && can_follow_packet(marker)) {
      place.insertion = position;
    }
    position = marker == kFill ? position + 1 : is_segment(marker) ? segment + length : segment;
  }
  return place;
}

// --- MP4 ---

// Length (of a new packet and of this), type and identifier.
constexpr char kXmpBoxHeader[] =
    "\x00\x00\x0A\x18uuid\xBE\x7A\xCF\xCB\x97\xA9\x42\xE8\x9C\x71\x99\x94\x91\xE3\xAF\xAC";
constexpr std::string_view kMp4PacketHeader{kXmpBoxHeader, sizeof kXmpBoxHeader - 1};
constexpr std::string_view kXmpBox = kMp4PacketHeader.substr(4);

// A packet is taken to begin 8 bytes into the box's payload, where the rewritten ones of stored files do. New
// ones begin with the payload: their first line is no field's, and so the difference does not matter.
constexpr int64_t kPacketInBox = 32;

// A new box goes behind "moov".
xmp_place scan_mp4(int fd, int64_t size) {
  xmp_place place;
  block_reader reader(fd, &place.was_read);
  int64_t position = 0;
  for (;;) {
    const auto block = reader.load(position);
    if (block.size() < kBlockSize) return place;
    const auto type = block.subspan(4);
    if (begins_with(type, "mdat") || begins_with(type, "moof")) place.moves_media = place.insertion >= 0;
    uint64_t box = big_endian(block.first(4));
    // A "uuid" box with a 64-bit size ends the walk: its identifier would stand elsewhere.
    if (box == 1 && !begins_with(type, "uuid")) box = big_endian(block.subspan(8, 8));
    // 0 is a box up to the end of the file; the others are damaged.
    if (box < 8 || box > static_cast<uint64_t>(size - position)) return place;
    const auto length = static_cast<int64_t>(box);
    if (begins_with(type, kXmpBox) && length > kPacketInBox)
      return {.packet = position + kPacketInBox, .length = length - kPacketInBox};
    position += length;
    if (begins_with(type, "moov")) place.insertion = position;
  }
}

// --- both ---

constexpr std::string_view kJpegPacketHeader{"\xFF\xE1\x0A\x02", 4};
static_assert(kNewPacketSize + 2 == 0x0A02 && kNewPacketSize + kMp4PacketHeader.size() == 0x0A18);

constexpr media_format kFormats[] = {
    {".jpg", scan_jpeg, kJpegPacketHeader, "jpgxmp scan open fail"},
    {".mp4", scan_mp4, kMp4PacketHeader, nullptr},
};

}  // namespace

const media_format* find_media_format(const char* path) {
  const char* extension = strrchr(path, '.');
  if (extension == nullptr) return nullptr;
  for (const media_format& format : kFormats) {
    if (strcasecmp(extension, format.extension) == 0) return &format;
  }
  return nullptr;
}
