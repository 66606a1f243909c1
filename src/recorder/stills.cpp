#include "recorder/stills.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <optional>

#include "base/child_process.h"
#include "base/file.h"
#include "base/paths.h"
#include "base/space.h"
#include "base/trace.h"
#include "recorder/metadata.h"
#include "recorder/recorder_state.h"
#include "xmp/xmp.h"

namespace {

constexpr int kCut_ms = 20'000;
constexpr int64_t kLargeStill = 3 << 20;  // as large as one may be that was not made
constexpr int64_t kPacketRoom = 4096;     // its packet is smaller
constexpr int kHungLimit = 3;  // cuts that hang, of one take: then the rest of its stills is given up

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

// Its packet is the last that it gets, in one step: the picture is whole, too. Such a still is never made
// anew; nor is one that cannot be read now.
bool is_whole(const std::string& path) {
  const bool is_there = access(path.c_str(), F_OK) == 0 || errno != ENOENT;
  return is_there && !orb_xmp_is_missing(path.c_str());
}

enum class cut_result { done, failed, hung, broken_off };

// None comes of an offset beyond the end of the take: done. A part of a picture is none.
cut_result cut_still(const take& t, const std::string& offset, const std::string& path) {
  remove(path.c_str());
  const std::string command = std::string(paths::kFfmpeg) + " -ss " + offset + " -i " +
                              shell_quoted(internal_take_path(t)) + " -vframes 1 -q:v 2 " +
                              shell_quoted(path);
  const auto ignore = [](std::string_view) {};
  const int status = run_shell(command, 1, ignore, {.timeout_ms = kCut_ms, .ends_with_us = true});
  if (status == 0) return cut_result::done;
  trace(kTraceRecorder, "image failed %s %d", offset.c_str(), status);
  remove(path.c_str());
  if (was_broken_off(status)) return cut_result::broken_off;
  return status == kTimedOut ? cut_result::hung : cut_result::failed;
}

// On the disk afterwards: the description is about to list it.
cut_result make_still(const take& t, const std::string& offset, const std::string& path,
                      const orb_xmp_fields& metadata) {
  const cut_result cut = cut_still(t, offset, path);
  if (cut != cut_result::done || access(path.c_str(), F_OK) != 0) return cut;
  const bool is_told = orb_xmp_write(path.c_str(), metadata) == 0;
  flush_file(path.c_str());
  return is_told ? cut_result::done : cut_result::failed;
}

// For what a still, or the copy that its packet needs, may have failed.
bool is_store_full(const std::string& still) {
  const int64_t size = file_size(still);
  return !has_room(paths::kUsbTakes, size >= 0 ? size + kPacketRoom : kLargeStill);
}

bool is_listed(json_object* files, const std::string& name) {
  return std::ranges::any_of(json_elements(files),
                             [&](json_object* entry) { return json_text(entry, "name") == name; });
}

void add_still(json_object* files, const std::string& name) {
  if (!is_listed(files, name)) json_object_array_add(files, take_file_entry(name).release());
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

bool make_stills(const take& t, const stopped_take& stopped, json_object* files) {
  int hung = 0;
  std::string last;
  for (size_t i = 0; i < stopped.offsets.size(); ++i) {
    const std::optional<offset_numbers> numbers = parse_offset(stopped.offsets[i]);
    if (!numbers) continue;
    const std::string offset = offset_text(*numbers);
    const std::string name = still_file_name(t, offset);
    const std::string path = path_in(paths::kUsbTakes, name);
    trace(kTraceRecorder, "create image %s", offset.c_str());
    if (hung < kHungLimit && !is_whole(path)) {
      const std::string note = i < stopped.notes.size() ? stopped.notes[i] : "";
      const cut_result made = make_still(t, offset, path, make_metadata(stopped.texts, t.start_time, note));
      if (made == cut_result::failed && is_store_full(path)) return false;
      if (made == cut_result::broken_off) return false;
      if (made == cut_result::hung) ++hung;
    }
    if (offset == last) {
      trace(kTraceRecorder, "skip list add");
    } else {
      add_still(files, name);
    }
    last = offset;
  }
  return true;
}

void list_found_stills(const take& t, json_object* files) {
  for (const std::string& name : names_in(paths::kUsbTakes)) {
    if (!is_still_of(t, name) || is_listed(files, name)) continue;
    const std::string path = path_in(paths::kUsbTakes, name);
    if (is_whole(path)) {
      add_still(files, name);
    } else {
      trace(kTraceRecorder, "remove image '%s'", name.c_str());
      remove(path.c_str());
    }
  }
}
