// A packet is written over an old one in place, because a take has gigabytes and vfat cannot share blocks,
// and still a power cut leaves the old one or the new one: before the first byte is changed, both are on the
// disk in an undo record beside the file, on its own medium. Whoever comes next puts the old packet back when
// he finds sectors of both. One write at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

inline constexpr int64_t kPacketLimit = 1 << 20;  // a JPEG's segment holds less; of an MP4 both are in memory

struct xmp_undo {
  std::string name;  // of the file, in the folder of the record
  int64_t position = 0;
  std::string_view old_packet;  // both of one length
  std::string_view new_packet;
};

std::string make_undo_record(const xmp_undo& undo);

// Looks at a record, which `undo` then points into; nothing when it was not written to its end. Pure.
std::optional<xmp_undo> read_undo_record(std::string_view record);

// Writes the new packet over the old one in the open file `fd` of `folder`. False with the old one in the
// file (or, when the store refuses that too, with the record in its folder).
bool overwrite_packet(int fd, const std::string& folder, const xmp_undo& undo);

// Ends what an interruption has left in a folder: a packet that is neither old nor new becomes the old one, a
// file that has been changed since is left alone, the record goes, unless it could not be read. False when
// the old packet was put back, or could not be: what has been read of it before is not to be trusted.
bool settle_interrupted_write(const std::string& folder);
