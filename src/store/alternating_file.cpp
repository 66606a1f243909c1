#include "store/alternating_file.h"

#include <cerrno>
#include <cstdio>

#include "base/file.h"

namespace {

struct generation {
  json_owner record;  // null when the file is not valid
  int32_t previous_id = -1;
  int32_t current_id = 0;
};

int32_t integer_member(json_object* record, const char* key, int32_t absent) {
  json_object* value = json_member(record, key);
  return value == nullptr ? absent : json_object_get_int(value);
}

generation load_generation(const char* path) {
  generation loaded;
  loaded.record = load_json_file(path);
  if (integer_member(loaded.record.get(), "values_valid", 0) == 0) return {};
  loaded.previous_id = integer_member(loaded.record.get(), "previous_id", -1);
  loaded.current_id = integer_member(loaded.record.get(), "current_id", 0);
  return loaded;
}

// The id after `id`; wraps from the largest to the smallest.
int32_t next_id(int32_t id) { return static_cast<int32_t>(static_cast<uint32_t>(id) + 1); }

}  // namespace

json_owner load_alternating_file(alternating_file* files) {
  generation file[2] = {load_generation(files->path[0]), load_generation(files->path[1])};
  // A test of the chain, not of magnitudes: the ids may wrap.
  const bool second =
      file[1].record != nullptr && (file[0].record == nullptr || file[1].previous_id == file[0].current_id);
  files->live = second ? 1 : 0;
  generation& chosen = file[files->live];
  files->previous_id = chosen.previous_id;
  files->current_id = chosen.current_id;
  return std::move(chosen.record);
}

int save_alternating_file(alternating_file* files, json_object* values) {
  const int32_t id = next_id(files->current_id);
  const json_owner record(json_object_new_object());
  if (!record || !add_json_member(record.get(), "previous_id", json_object_new_int(files->current_id)) ||
      !add_json_member(record.get(), "current_id", json_object_new_int(id))) {
    return -2;
  }
  json_object_object_foreach(values, key, value) {
    if (!add_json_member(record.get(), key, json_object_get(value))) return -2;
  }
  if (!add_json_member(record.get(), "values_valid", json_object_new_int(1))) return -2;

  const int target = files->live == 1 ? 0 : 1;
  if (save_json_file(files->path[target], record.get()) != 0) return -1;
  files->previous_id = files->current_id;
  files->current_id = id;
  files->live = target;
  return 0;
}

int restart_alternating_file(alternating_file* files, json_object* values) {
  alternating_file restarted{{files->path[0], files->path[1]}, files->live};
  const int result = save_alternating_file(&restarted, values);
  if (result != 0) return result;
  *files = restarted;
  const char* older = files->path[1 - files->live];
  const bool gone = remove(older) == 0 || errno == ENOENT;
  return gone && flush_folder_of(older) ? 0 : -1;
}
