// json-c objects with an owner, and files of one JSON object. Any thread.
#pragma once

#include <json-c/json.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct json_releaser {
  void operator()(json_object* object) const { json_object_put(object); }
};
using json_owner = std::unique_ptr<json_object, json_releaser>;

// The value of a file of at most 4 MiB that holds JSON; null when it cannot be read or does not parse.
json_owner load_json_file(const char* path);

// Writes `object` to `path` in place, in json-c's plain form with slashes unescaped, and flushes file and
// folder: after 0 the content survives a power cut. The target must not be the only good copy; what is no
// regular file, or cannot be opened, is replaced. Returns 0, or -1 with errno set; the file is then
// undefined. A null `object`, which could not be made, leaves it as it was: -1.
int save_json_file(const char* path, json_object* object);

// The same form, written beside the file and renamed over it: the content is the old or the new one at any
// moment, also after a power cut. False when it could not be written, or `object` is null.
bool replace_json_file(const std::string& path, json_object* object);

// The member `key`, or null when `object` is no object, the key is missing or its value is null. Borrowed.
json_object* json_member(json_object* object, const char* key);

// The member `key` as a text, as json-c reads a string, a number or a boolean; nothing when it is missing,
// null, an array or an object. Borrowed; a zero byte ends it.
std::optional<std::string_view> text_member(json_object* object, const char* key);

// The same up to its first zero byte, "" when there is none.
std::string json_text(json_object* object, const char* key);

// Adds the member `key` and takes `value` over, also when it fails. False when memory has run out: a null
// `value`, which is what json-c's constructors then return, is not added.
bool add_json_member(json_object* object, const char* key, json_object* value);

// Add one member that `object` does not have yet; false when memory has run out. A text goes in as UTF-8
// (base/text.h). Named apart on purpose: an overload would take a literal for a flag.
bool add_text(json_object* object, const char* key, const std::string& text);
bool add_number(json_object* object, const char* key, int64_t number);
bool add_flag(json_object* object, const char* key, bool is_on);

// Appends the key of a member to an object that is being written, and opens it when `json` is empty.
void append_json_key(std::string* json, std::string_view key);

// Appends `text` to `json` as a string in quotes, as json-c writes it with slashes unescaped; nothing when
// memory has run out.
void append_json_string(std::string* json, std::string_view text);

// The elements of an array, for a loop over them: borrowed, and null where the array holds null. None of
// anything else than an array.
std::vector<json_object*> json_elements(json_object* array);
