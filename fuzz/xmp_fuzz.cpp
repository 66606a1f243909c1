// Looks for a packet in any bytes as JPEG and as MP4: what is found lies within them. Reads them as a packet,
// and takes them as the template of one: the packet is as long as it should be, and whole where there is
// room. Compares them with a packet of ours, and looks for an undo record in them.
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/file.h"
#include "xmp/media_scan.h"
#include "xmp/packet.h"
#include "xmp/undo.h"

static void check_place(const xmp_place& place, int64_t size) {
  const bool has_packet = place.length > 0;
  if (place.insertion > size || place.length < 0 || place.packet < 0 || place.packet + place.length > size)
    abort();
  if (!has_packet && place.packet != 0) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  static const unique_fd file(memfd_create("media", MFD_CLOEXEC));
  if (ftruncate(file.get(), 0) != 0 || pwrite(file.get(), data, size, 0) != static_cast<ssize_t>(size))
    abort();
  for (const char* name : {".jpg", ".mp4"})
    check_place(find_media_format(name)->scan(file.get(), static_cast<int64_t>(size)),
                static_cast<int64_t>(size));

  orb_xmp_fields fields;
  parse_xmp_packet(bytes, &fields);
  std::vector<char> packet(size / 2);  // ends where its allocation ends
  fill_xmp_packet(bytes, fields, packet);
  packet.resize(size + 100);
  orb_xmp_fields again;
  if (fill_xmp_packet(bytes, fields, packet) == 0 &&
      parse_xmp_packet({packet.data(), packet.size()}, &again) != 0)
    abort();
  can_replace_packet(bytes, {packet.data(), packet.size()}, fields);
  const auto undo = read_undo_record(bytes);
  if (undo && (undo->position < 0 || undo->old_packet.size() != undo->new_packet.size())) abort();
  return 0;
}
