// The stills of a take: each mark is cut from its file by ffmpeg. Recording worker.

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <optional>

#include "app/trace.h"
#include "base/child_process.h"
#include "base/file.h"
#include "base/paths.h"
#include "recorder/internal.h"
#include "recorder/line_file.h"
#include "recorder/metadata.h"

namespace {

using offset_numbers = std::array<int, 4>;  // hours, minutes, seconds, milliseconds

std::optional<offset_numbers> parse_offset(std::string_view line) {
  constexpr offset_numbers kLargest = {99, 59, 59, 999};
  constexpr char kSeparators[] = "::.";
  offset_numbers numbers{};
  const char* at = line.data();
  const char* const end = at + line.size();
  for (size_t i = 0; i < numbers.size(); ++i) {
    if (i > 0 && (at == end || *at++ != kSeparators[i - 1])) return std::nullopt;
    const auto [rest, error] = std::from_chars(at, end, numbers[i]);
    if (error != std::errc() || numbers[i] < 0 || numbers[i] > kLargest[i]) return std::nullopt;
    at = rest;
  }
  return numbers;
}

std::string offset_text(const offset_numbers& numbers) {
  char text[64];
  snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", numbers[0], numbers[1], numbers[2], numbers[3]);
  return text;
}

std::string still_path(const std::string& name) { return std::string(paths::kUsbTakes) + "/" + name; }

// None comes of an offset beyond the end of the take.
void cut_still(const take& t, const std::string& offset, const std::string& path) {
  trace(kTraceRecorder, "create image %s", offset.c_str());
  remove(path.c_str());
  run_shell(std::string(paths::kFfmpeg) + " -ss " + offset + " -i " + shell_quoted(internal_take_path(t)) +
                " -vframes 1 -q:v 2 " + shell_quoted(path),
            1, [](std::string_view) {});
}

// On the disk afterwards: the description is about to list it.
void tag_still(const std::string& path, const orb_xmp_fields& fields) {
  if (orb_xmp_write(path.c_str(), fields) != 0) flush_file(path.c_str());
}

bool is_listed(json_object* files, const std::string& name) {
  for (size_t i = 0; i < json_object_array_length(files); ++i) {
    if (json_text(json_object_array_get_idx(files, i), "name") == name) return true;
  }
  return false;
}

// Whether a file's name is that of a still of the take, at whatever offset.
bool is_still_of(const take& t, std::string name) {
  constexpr std::string_view kVariable = "00-00-00-000.jpg";
  const std::string pattern = still_file_name(t, "00:00:00.000");
  if (name.size() != pattern.size()) return false;
  std::replace_if(
      name.end() - kVariable.size(), name.end(), [](char c) { return c >= '0' && c <= '9'; }, '0');
  return name == pattern;
}

}  // namespace

void make_stills(const take& t, json_object* files) {
  const auto offsets = read_lines(kOffsets);
  const auto notes = read_lines(kNotes);
  if (!offsets || !notes) return;
  orb_xmp_fields fields;
  std::string last;
  for (size_t i = 0; i < offsets->size(); ++i) {
    const std::optional<offset_numbers> numbers = parse_offset((*offsets)[i]);
    if (!numbers) continue;
    const std::string offset = offset_text(*numbers);
    const std::string name = still_file_name(t, offset);
    cut_still(t, offset, still_path(name));
    if (offset == last) {
      trace(kTraceRecorder, "skip list add");  // made anew all the same, and told again what it is
    } else {
      json_object_array_add(files, take_file_entry(name).release());
      fields = make_metadata(t.start_time, i < notes->size() ? (*notes)[i] : "");
    }
    last = offset;
    tag_still(still_path(name), fields);
  }
}

void remove_unlisted_stills(const take& t, json_object* files) {
  for (const std::string& name : names_in(paths::kUsbTakes)) {
    if (!is_still_of(t, name) || is_listed(files, name)) continue;
    trace(kTraceRecorder, "remove image '%s'", name.c_str());
    remove(still_path(name).c_str());
  }
}
