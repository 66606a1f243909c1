// The XMP packet in its file: written over the one that is there, or into a copy that then replaces the file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

#include "app/trace.h"
#include "base/file.h"
#include "base/file_copy.h"
#include "base/mutex.h"
#include "base/paths.h"
#include "recorder/media_scan.h"
#include "recorder/xmp_packet.h"

namespace {

constexpr size_t kTemplateLimit = 65536;
constexpr int64_t kPacketLimit = 1 << 20;  // a JPEG's segment holds less, and of an MP4 both are in memory

mutex write_lock;  // there is one temporary file

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

bool write_at(int fd, const std::string& data, int64_t position) {
  return pwrite(fd, data.data(), data.size(), position) == static_cast<ssize_t>(data.size());
}

// One write; when it ends short, or does not reach the disk, the old bytes are put back.
bool rewrite_packet(const char* path, const xmp_place& place, const orb_xmp_fields& fields) {
  if (place.length > kPacketLimit) return false;
  const media_file file = open_media(path, O_RDWR);
  std::string old(static_cast<size_t>(place.length), ' ');
  if (!file.fd || pread(file.fd.get(), old.data(), old.size(), place.packet) != place.length) return false;
  if (write_at(file.fd.get(), build_packet(fields, place.length), place.packet) && fsync(file.fd.get()) == 0)
    return true;
  write_at(file.fd.get(), old, place.packet);
  return false;
}

bool copy_with_packet(const media_file& from, int to, int64_t insertion, const std::string& packet) {
  if (lseek(from.fd.get(), 0, SEEK_SET) != 0) return false;
  const int64_t before = insertion < 0 ? from.size : insertion;
  return copy_blocks(from.fd.get(), to, before) && (insertion < 0 || write_all(to, packet)) &&
         copy_blocks(from.fd.get(), to, from.size - before) && fsync(to) == 0;
}

bool insert_packet(const char* path, const media_file& file, int64_t insertion, const std::string& packet) {
  unlink(paths::kXmpTemporary);  // of a power cut
  unique_fd copy(open(paths::kXmpTemporary, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (!copy) return false;
  const bool copied = copy_with_packet(file, copy.get(), insertion, packet);
  copy.reset();
  if (!copied || rename(paths::kXmpTemporary, path) != 0) {
    unlink(paths::kXmpTemporary);
    return false;
  }
  flush_folder_of(path);
  return true;
}

bool write_packet(const char* path, const orb_xmp_fields& fields) {
  const media_format* format = find_media_format(path);
  if (format == nullptr) return false;
  xmp_place place;
  const media_file file = scan_media(path, *format, &place);
  if (!file.fd) return false;
  if (place.length > 0) return rewrite_packet(path, place, fields);
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
  const int result = read_packet(path, fields);
  trace(kTraceRecorder, "read xmp md %d", result);
  return result;
}
