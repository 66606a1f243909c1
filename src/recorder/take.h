// A take and its files: the description, the guid file, and the names of picture and caption. Any thread.
#pragma once

#include <string>
#include <vector>

#include "base/json.h"

inline constexpr size_t kGuidLength = 36;

struct take {
  std::string guid;
  std::string name;        // as it was given
  std::string asset_id;    // the recording title
  std::string start_time;  // local, "2026-03-09-14-05-59"
  std::string note;
};

// "NAME_START", with which the name of every file of a take begins; what a file name on a vfat stick cannot
// hold becomes "_".
std::string take_file_stem(const take& t);

// Whether `name` begins like a file of the take, in any case: on a vfat store that is the same file. Of a
// take without a description the guid is all that is known.
bool is_named_after_take(const take& t, const std::string& name);

// "NAME_START.EXTENSION".
std::string take_file_name(const take& t, const char* extension);

// The same for the still at an offset "HH:MM:SS.mmm": "NAME_START_HH-MM-SS-mmm.jpg".
std::string still_file_name(const take& t, std::string offset);

std::string internal_take_path(const take& t);
std::string usb_take_path(const take& t);
std::string caption_path(const take& t);
std::string description_path(const std::string& guid);

// The guid in a guid file, "" when there is none.
std::string read_guid(const char* path);

// The guid files of takes that were set aside.
std::vector<std::string> set_aside_guid_files();

// Guids of all takes that are not complete: the one that is being recorded or completed, and those set aside.
std::vector<std::string> incomplete_takes();

// The entry of a description's "files".
json_owner take_file_entry(const std::string& name);

// The take as its description tells it, with "" for what is missing.
take described_take(const std::string& guid, json_object* description);

// The description of a take; null when there is no memory for it.
json_owner make_description(const take& t, const std::string& duration, json_owner files);

// Writes the description, whole or not at all. False when it could not be written.
bool save_description(const take& t, const std::string& duration, json_owner files);

// Fills the take of `guid` from its description, with "" for what is missing; returns the description, null
// when it cannot be read or does not tell the take's file.
json_owner load_description(const std::string& guid, take* t);

// The take that the guid file names, in the same way; its guid is "" when there is none.
take take_in_work();

// A new time-based guid.
std::string make_guid();
