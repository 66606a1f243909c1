#include "base/json.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <string>

#include "base/file.h"
#include "base/text.h"

namespace {

constexpr size_t kFileLimit = 4 << 20;
constexpr int kForm = JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE;

// A regular file to write, or nothing.
unique_fd open_regular(const char* path) {
  unique_fd fd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, 0644));
  struct stat info {};
  if (fd && (fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode))) {
    fd.reset();
    errno = EINVAL;
  }
  return fd;
}

// Whether open() tells that something else stands in the file's place, be it a link to nowhere; it may want
// for descriptors or space.
bool is_in_the_way(int error) {
  return error == EISDIR || error == EINVAL || error == ENXIO || error == ELOOP || error == EACCES ||
         error == ENOENT || error == ENOTDIR;
}

// What else stands in the file's place goes: it would keep every other save from the disk.
unique_fd open_target(const char* path) {
  unique_fd fd = open_regular(path);
  if (fd || !is_in_the_way(errno)) return fd;
  const int error = errno;
  if (remove(path) == 0) return open_regular(path);
  errno = error;
  return fd;
}

}  // namespace

json_owner load_json_file(const char* path) {
  const std::optional<std::string> text = read_file(path, kFileLimit);
  return json_owner(text ? json_tokener_parse(text->c_str()) : nullptr);
}

int save_json_file(const char* path, json_object* object) {
  if (object == nullptr) return errno = ENOMEM, -1;
  const unique_fd fd = open_target(path);
  if (!fd) return -1;
  // The folder each time: whether the file's name has ever reached the disk cannot be seen from here.
  const bool saved =
      json_object_to_fd(fd.get(), object, kForm) == 0 && fsync(fd.get()) == 0 && flush_folder_of(path);
  return saved ? 0 : -1;
}

bool replace_json_file(const std::string& path, json_object* object) {
  if (object == nullptr) return false;
  const char* text = json_object_to_json_string_ext(object, kForm);
  return text != nullptr && replace_file(path, text);
}

json_object* json_member(json_object* object, const char* key) {
  json_object* value = nullptr;
  return json_object_object_get_ex(object, key, &value) ? value : nullptr;
}

std::optional<std::string_view> text_member(json_object* object, const char* key) {
  json_object* value = json_member(object, key);
  switch (json_object_get_type(value)) {
    case json_type_string:
      return std::string_view(json_object_get_string(value), size_t(json_object_get_string_len(value)));
    case json_type_boolean:
    case json_type_int:
    case json_type_double:
      return json_object_get_string(value);
    default:
      return std::nullopt;
  }
}

std::string json_text(json_object* object, const char* key) {
  const std::optional<std::string_view> text = text_member(object, key);
  return text ? text->data() : "";
}

bool add_json_member(json_object* object, const char* key, json_object* value) {
  if (value != nullptr && json_object_object_add(object, key, value) == 0) return true;
  json_object_put(value);
  return false;
}

bool add_text(json_object* object, const char* key, const std::string& text) {
  return add_json_member(object, key, json_object_new_string(as_utf8(text).c_str()));
}

bool add_number(json_object* object, const char* key, int64_t number) {
  return add_json_member(object, key, json_object_new_int64(number));
}

bool add_flag(json_object* object, const char* key, bool is_on) {
  return add_json_member(object, key, json_object_new_boolean(is_on ? 1 : 0));
}

void append_json_key(std::string* json, std::string_view key) {
  json->append(json->empty() ? "{\"" : ",\"").append(key).append("\":");
}

// Nearly every text goes in as it is.
void append_json_string(std::string* json, std::string_view text) {
  const auto is_escaped = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '"' || c == '\\'; };
  if (std::ranges::none_of(text, is_escaped)) {
    json->append(1, '"').append(text).append(1, '"');
    return;
  }
  const json_owner value(json_object_new_string_len(text.data(), static_cast<int>(text.size())));
  const char* form = value ? json_object_to_json_string_ext(value.get(), kForm) : nullptr;
  if (form != nullptr) json->append(form);
}

std::vector<json_object*> json_elements(json_object* array) {
  std::vector<json_object*> elements;
  if (!json_object_is_type(array, json_type_array)) return elements;
  for (size_t i = 0; i < json_object_array_length(array); ++i)
    elements.push_back(json_object_array_get_idx(array, i));
  return elements;
}
