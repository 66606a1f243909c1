// The operator's texts, which stand in the picture, in the names of takes and in their metadata: settings 13
// to 15 with a copy in memory, that nobody waits for, and the unit's names from its configuration. A load
// cuts to size - 1 characters. Any thread; a set waits for the disk.
#pragma once

#include <cstddef>

// Sizes with their terminating zero.
inline constexpr size_t kRecorderTextSize = 81;  // title, operator id, file name
inline constexpr size_t kFlowDirectionSize = 32;

struct recorder_texts {
  char title[kRecorderTextSize] = "";
  char operator_id[kRecorderTextSize] = "";
  char flow_direction[kFlowDirectionSize] = "";
  char filename[kRecorderTextSize] = "";
  char model_name[16] = "";
  char serial_number[16] = "";
};

// Loads them from the settings and the unit's configuration. Start-up, once, before anybody asks for them.
void load_recorder_texts();

recorder_texts copy_recorder_texts();

// Title, flow direction and operator id are settings; the store's fields are smaller than ours, so a title
// longer than 41 characters is whole until the next start and comes back cut: on purpose. The file name is
// the title until it is set.
void orb_load_recorder_title(char* text, size_t size);
void orb_load_recorder_flow_direction(char* text, size_t size);
void orb_load_recorder_operator_id(char* text, size_t size);
void orb_load_recorder_filename(char* text, size_t size);
void orb_set_recorder_title(const char* text);
void orb_set_recorder_flow_direction(const char* text);
void orb_set_recorder_operator_id(const char* text);
void orb_set_recorder_filename(const char* text);
