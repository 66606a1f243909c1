// The XMP packet in its file: written over the one that is there, or into a copy that then replaces the file.
#include "xmp/xmp.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

#include "base/file.h"
#include "base/file_copy.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "base/space.h"
#include "base/trace.h"
#include "xmp/media_scan.h"
#include "xmp/packet.h"
#include "xmp/undo.h"

namespace {

constexpr size_t kTemplateLimit = 65536;

mutex write_lock;  // there is one temporary file, and one undo record a folder

struct media_file {
  unique_fd fd;  // none when it cannot be opened or is not a regular file
  int64_t size = 0;
};

media_file open_media(const char* path, int access) {
  // O_NONBLOCK: a pipe of that name must not hold the caller.
  media_file file{unique_fd(open(path, access | O_CLOEXEC | O_NONBLOCK))};
  struct stat info {};
  if (!file.fd || fstat(file.fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
  file.size = info.st_size;
  return file;
}

// Opens the file for reading and looks through it.
media_file scan_media(const char* path, const media_format& format, xmp_place* place) {
  media_file file = open_media(path, O_RDONLY);
  if (file.fd) {
    *place = format.scan(file.fd.get(), file.size);
  } else if (format.open_failure != nullptr) {
    trace(kTraceRecorder, "%s", format.open_failure);
  }
  return file;
}

std::string build_packet(const orb_xmp_fields& fields, int64_t size) {
  std::string packet(static_cast<size_t>(size), ' ');
  orb_xmp_build(fields, packet.data(), packet.size());
  return packet;
}

// Where a file is, behind symbolic links: its undo record goes there.
struct file_place {
  std::string folder;
  std::string name;
};

std::optional<file_place> real_place(const char* path) {
  char real[PATH_MAX];
  if (realpath(path, real) == nullptr) return std::nullopt;
  const std::string whole = real;
  const size_t slash = whole.rfind('/');
  return file_place{whole.substr(0, slash), whole.substr(slash + 1)};
}

bool rewrite_packet(const char* path, const xmp_place& place, const orb_xmp_fields& fields) {
  if (place.length > kPacketLimit) return false;
  const auto where = real_place(path);
  const media_file file = open_media(path, O_RDWR);
  std::string old(static_cast<size_t>(place.length), ' ');
  if (!where || !file.fd || pread(file.fd.get(), old.data(), old.size(), place.packet) != place.length)
    return false;
  const std::string fresh = build_packet(fields, place.length);
  return can_replace_packet(old, fresh, fields) &&
         overwrite_packet(file.fd.get(), where->folder, {where->name, place.packet, old, fresh});
}

bool copy_with_packet(const media_file& from, int to, int64_t insertion, const std::string& packet) {
  return lseek(from.fd.get(), 0, SEEK_SET) == 0 && copy_blocks(from.fd.get(), to, insertion) &&
         write_all(to, packet) && copy_blocks(from.fd.get(), to, from.size - insertion) && fsync(to) == 0;
}

bool insert_packet(const char* path, const media_file& file, int64_t insertion, const std::string& packet) {
  unlink(paths::kXmpTemporary);  // of a power cut
  if (!has_room(paths::kUsbTakes, file.size + static_cast<int64_t>(packet.size()))) return false;
  const unique_fd copy(open(paths::kXmpTemporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (!copy) return false;
  if (!copy_with_packet(file, copy.get(), insertion, packet) || rename(paths::kXmpTemporary, path) != 0) {
    unlink(paths::kXmpTemporary);
    return false;
  }
  // vfat keeps a file's size and place with its name: the new name has them when the file is flushed again.
  return fsync(copy.get()) == 0 && flush_folder_of(path);
}

// False when that has changed a file: the fields may have been read from the mixture.
bool settle_folder_of(const char* path) {
  const auto where = real_place(path);
  return !where || settle_interrupted_write(where->folder);
}

bool write_packet(const char* path, const orb_xmp_fields& fields) {
  const media_format* format = find_media_format(path);
  if (format == nullptr) return false;
  const bool is_settled = settle_folder_of(path);
  xmp_place place;
  const media_file file = scan_media(path, *format, &place);
  if (!file.fd || !place.was_read) return false;
  if (place.length > 0) return is_settled && rewrite_packet(path, place, fields);
  if (place.insertion < 0) return true;
  if (place.moves_media) return false;
  return insert_packet(path, file, place.insertion,
                       std::string(format->packet_header) + build_packet(fields, kNewPacketSize));
}

int read_packet(const char* path, orb_xmp_fields* fields) {
  *fields = {};
  const media_format* format = find_media_format(path);
  if (format == nullptr) return -1;
  xmp_place place;
  const media_file file = scan_media(path, *format, &place);
  if (place.length == 0) return -1;
  std::string packet(std::min(kXmpReadLimit, static_cast<size_t>(place.length)), '\0');
  const ssize_t count = pread(file.fd.get(), packet.data(), packet.size(), place.packet);
  if (count < 0) {
    trace(kTraceRecorder, "xmp read open fail");
    return -1;
  }
  packet.resize(static_cast<size_t>(count));
  return parse_xmp_packet(packet, fields);
}

}  // namespace

int orb_xmp_build(const orb_xmp_fields& fields, char* buffer, size_t capacity) {
  const auto xmp_template = read_file(paths::kXmpTemplate, kTemplateLimit);
  return fill_xmp_packet(xmp_template.value_or(""), fields, {buffer, capacity});
}

static int traced_write(int result) {
  trace(kTraceRecorder, "write xmp md %d", result);
  return result;
}

int orb_xmp_write(const char* path, const orb_xmp_fields& fields, xmp_turn turn) {
  if (!write_lock.try_lock()) {
    if (turn == xmp_turn::skip) return traced_write(-1);
    write_lock.lock();
  }
  const bool written = write_packet(path, fields);
  write_lock.unlock();
  return traced_write(written ? 0 : -1);
}

int orb_xmp_read(const char* path, orb_xmp_fields* fields) {
  if (find_media_format(path) != nullptr && write_lock.try_lock()) {
    settle_folder_of(path);
    write_lock.unlock();
  }
  const int result = read_packet(path, fields);
  trace(kTraceRecorder, "read xmp md %d", result);
  return result;
}

bool orb_xmp_is_missing(const char* path) {
  const media_format* format = find_media_format(path);
  xmp_place place;
  return format != nullptr && scan_media(path, *format, &place).fd && place.was_read && place.length == 0;
}

void orb_xmp_end_interrupted(const char* folder) {
  if (!write_lock.try_lock()) return;
  settle_interrupted_write(folder);
  write_lock.unlock();
}
