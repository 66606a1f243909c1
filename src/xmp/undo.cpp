#include "xmp/undo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "base/file.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/trace.h"

namespace {

constexpr char kMagic[8] = {'x', 'm', 'p', 'u', 'n', 'd', 'o', '1'};
constexpr int64_t kSectorSize = 512;  // what a disk writes whole

// Behind it stand the old packet and the new one. Of this machine's byte order.
struct undo_header {
  char magic[sizeof kMagic];
  uint64_t checksum;  // of the record with 0 in this place
  int64_t position;
  int64_t length;
  char name[NAME_MAX + 1];
};
constexpr size_t kRecordLimit = sizeof(undo_header) + 2 * kPacketLimit;

std::string record_path(const std::string& folder) { return folder + "/" + paths::kXmpUndoName; }

// FNV-1a, 64 bits.
uint64_t checksum(std::string_view bytes) {
  uint64_t sum = 0xCBF29CE484222325;
  for (const char byte : bytes) sum = (sum ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  return sum;
}

std::string record_bytes(undo_header header, std::string_view packets) {
  header.checksum = 0;
  std::string record(reinterpret_cast<const char*>(&header), sizeof header);
  record += packets;
  header.checksum = checksum(record);
  return record.replace(0, sizeof header, reinterpret_cast<const char*>(&header), sizeof header);
}

bool write_at(int fd, std::string_view data, int64_t position) {
  return pwrite(fd, data.data(), data.size(), position) == static_cast<ssize_t>(data.size()) &&
         fsync(fd) == 0;
}

// On the disk, with its name. There is none when it fails.
bool write_record(const std::string& path, const xmp_undo& undo) {
  const unique_fd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
  if (!fd) return false;
  const bool recorded =
      write_all(fd.get(), make_undo_record(undo)) && fsync(fd.get()) == 0 && flush_folder_of(path.c_str());
  if (!recorded) unlink(path.c_str());
  return recorded;
}

// Whether each sector of the packet is of the old or the new one, so that nobody else has written it.
bool is_mixture(const std::string& packet, const xmp_undo& undo) {
  const auto length = static_cast<int64_t>(packet.size());
  for (int64_t at = 0; at < length;) {
    const int64_t end = std::min(length, at + kSectorSize - (undo.position + at) % kSectorSize);
    const auto part = [&](std::string_view text) {
      return text.substr(static_cast<size_t>(at), static_cast<size_t>(end - at));
    };
    if (part(packet) != part(undo.old_packet) && part(packet) != part(undo.new_packet)) return false;
    at = end;
  }
  return true;
}

bool is_no_file(int error) { return error == ENOENT || error == ELOOP || error == EISDIR || error == ENXIO; }

enum class outcome { untouched, restored, failed };

outcome restore(const std::string& folder, const xmp_undo& undo) {
  const unique_fd fd(open((folder + "/" + undo.name).c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  if (!fd) return is_no_file(errno) ? outcome::untouched : outcome::failed;
  struct stat info {};
  if (fstat(fd.get(), &info) != 0) return outcome::failed;
  if (!S_ISREG(info.st_mode)) return outcome::untouched;
  std::string packet(undo.old_packet.size(), '\0');
  const ssize_t count = pread(fd.get(), packet.data(), packet.size(), undo.position);
  if (count < 0) return outcome::failed;
  if (count != static_cast<ssize_t>(packet.size()) || !is_mixture(packet, undo)) return outcome::untouched;
  // What looks whole may not be on the disk yet.
  if (packet == undo.new_packet || packet == undo.old_packet)
    return fsync(fd.get()) == 0 ? outcome::untouched : outcome::failed;
  return write_at(fd.get(), undo.old_packet, undo.position) ? outcome::restored : outcome::failed;
}

outcome settle(const std::string& folder, std::string_view record) {
  const auto undo = read_undo_record(record);
  return undo ? restore(folder, *undo) : outcome::untouched;
}

// No error: what is there is too large, or no regular file. Any other may pass, and the record is needed
// then.
outcome without_record(int error) {
  return error == 0 || is_no_file(error) ? outcome::untouched : outcome::failed;
}

}  // namespace

std::string make_undo_record(const xmp_undo& undo) {
  undo_header header{};
  memcpy(header.magic, kMagic, sizeof kMagic);
  header.position = undo.position;
  header.length = static_cast<int64_t>(undo.old_packet.size());
  copy_text(header.name, sizeof header.name, undo.name);
  return record_bytes(header, std::string(undo.old_packet) + std::string(undo.new_packet));
}

std::optional<xmp_undo> read_undo_record(std::string_view record) {
  undo_header header;
  if (record.size() < sizeof header) return std::nullopt;
  memcpy(&header, record.data(), sizeof header);
  const std::string_view packets = record.substr(sizeof header);
  if (memcmp(header.magic, kMagic, sizeof kMagic) != 0 || record_bytes(header, packets) != record)
    return std::nullopt;
  const std::string name(header.name, strnlen(header.name, sizeof header.name));
  if (name.empty() || name.find('/') != std::string::npos || header.length < 1 ||
      header.length > kPacketLimit || header.position < 0 || header.position > INT64_MAX - header.length ||
      packets.size() != 2 * static_cast<size_t>(header.length))
    return std::nullopt;
  const auto length = static_cast<size_t>(header.length);
  return xmp_undo{name, header.position, packets.substr(0, length), packets.substr(length)};
}

bool overwrite_packet(int fd, const std::string& folder, const xmp_undo& undo) {
  const std::string path = record_path(folder);
  if (!write_record(path, undo)) return false;
  const bool written = write_at(fd, undo.new_packet, undo.position);
  // The record stays when what is on the disk is not known. Whether its end reaches the disk does not matter:
  // the packet that it names is whole.
  if (written || write_at(fd, undo.old_packet, undo.position)) unlink(path.c_str());
  return written;
}

bool settle_interrupted_write(const std::string& folder) {
  const std::string path = record_path(folder);
  errno = 0;
  const auto record = read_file(path.c_str(), kRecordLimit);
  if (!record && errno == ENOENT) return true;
  const outcome result = record ? settle(folder, *record) : without_record(errno);
  trace(kTraceRecorder, "xmp undo %d", static_cast<int>(result));
  if (result != outcome::failed) unlink(path.c_str());
  return result == outcome::untouched;
}
