// Where a picture or video file has its XMP packet, or has room for one: the segments of a JPEG (ITU-T T.81,
// annex B), the boxes of an MP4 (ISO/IEC 14496-12). Any thread.
#pragma once

#include <cstdint>
#include <string_view>

struct xmp_place {
  int64_t packet = 0;        // where the packet is
  int64_t length = 0;        // of the packet, which lies within the file; 0: there is none
  int64_t insertion = -1;    // where a new one goes, unless there is one; -1: nowhere
  bool moves_media = false;  // what the file's index counts from its start stands behind that
  bool was_read = true;      // false: a read failed, and what was not seen may have a packet
};

struct media_format {
  const char* extension;
  // Looks through an open file of `size` bytes, however damaged.
  xmp_place (*scan)(int fd, int64_t size);
  std::string_view packet_header;  // what stands before a new packet
  const char* open_failure;        // what is traced then, or null
};

inline constexpr int64_t kNewPacketSize = 2560;

// By the name's extension, in any case: ".jpg" or ".mp4"; null for others.
const media_format* find_media_format(const char* path);
