// XMP metadata of takes and stills: one packet in a JPEG or MP4 file, built from the template that is
// installed with the system, written into the file and read back. ISO 16684 (XMP): the APP1 segment of JPEG,
// the "uuid" box of MP4.
#pragma once

#include <cstddef>

// Zero-terminated texts, UTF-8.
struct orb_xmp_fields {
  char project_name[81] = "";  // recording title
  char composer[81] = "";      // operator id
  char shot_date[17] = "";     // "2026-03-09"
  char shot_time[17] = "";     // "14-05-59"
  char scene[32] = "";         // flow direction
  char camera_model[17] = "";  // model name
  char camera_label[17] = "";  // serial number
  char gps_latitude[17] = "";  // degrees
  char gps_longitude[17] = "";
  char gps_timestamp[17] = "";
  char comment[513] = "";  // note
};

// Fills `buffer` with a packet of exactly `capacity` bytes. 0, or -1 when the template cannot be read or has
// no padding line: the rest of the packet is spaces then. What is too long for the packet or for a line of
// its readers is cut, first the comment. Any thread.
int orb_xmp_build(const orb_xmp_fields& fields, char* buffer, size_t capacity);

// One file is written at a time.
enum class xmp_turn : bool {
  await,  // waits for another write
  skip,   // -1 while another writes
};

// Writes the packet into a file whose name ends in ".jpg" or ".mp4" (in any case): over the packet that it
// has, else into a copy that replaces it; a power cut leaves the old file or the new one. A file without a
// place for it stays without and is no failure. A packet of another program, or one in which the fields do
// not fit, is not written over: nothing but the old comment may be lost. A video whose media data would move
// takes none. 0, or -1 with the file as it was (or not known to be on the disk). Takes as long as the store
// does for a copy of the file. Any thread.
int orb_xmp_write(const char* path, const orb_xmp_fields& fields, xmp_turn turn = xmp_turn::await);

// Reads the file's packet; the record is empty where the packet has nothing. 0, or -1 when it has none or one
// that does not end within 4096 bytes. Any thread.
int orb_xmp_read(const char* path, orb_xmp_fields* fields);

// Whether a picture or video has been read and has no packet. False when it could not be read. Any thread.
bool orb_xmp_is_missing(const char* path);

// Puts an old packet back that a power cut, or a stick that was pulled, has left half overwritten in a folder
// of the store. A write or read of one of its files begins with that, too. Does not wait. Any thread.
void orb_xmp_end_interrupted(const char* folder);
