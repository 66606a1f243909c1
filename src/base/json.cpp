#include "base/json.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "base/file.h"

namespace {

constexpr size_t kFileLimit = 1 << 20;

}  // namespace

json_owner load_json_file(const char* path) {
  const std::optional<std::string> text = read_file(path, kFileLimit);
  if (!text) return nullptr;
  return json_owner(json_tokener_parse(text->c_str()));
}

int save_json_file(const char* path, json_object* object) {
  const bool is_new = access(path, F_OK) != 0;
  const unique_fd fd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, 0644));
  if (!fd) return -1;
  if (json_object_to_fd(fd.get(), object, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE) != 0 ||
      fsync(fd.get()) != 0 || (is_new && !flush_folder_of(path))) {
    const int error = errno;
    if (is_new) unlink(path);  // else the next save would take its name for flushed
    errno = error;
    return -1;
  }
  return 0;
}

json_object* json_member(json_object* object, const char* key) {
  json_object* value = nullptr;
  return json_object_object_get_ex(object, key, &value) ? value : nullptr;
}
