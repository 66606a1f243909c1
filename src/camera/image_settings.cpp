#include "camera/image_settings.h"

#include <algorithm>
#include <atomic>
#include <span>
#include <string_view>

#include "base/mutex.h"
#include "base/text.h"
#include "store/settings.h"
#include "visca/camera_thread.h"

namespace {

struct image_value {
  const char* word;
  int (*command)(visca_camera* camera);  // null: the worker sends the commands
};

struct image_setting {
  setting_index key;
  std::span<const image_value> values;  // by stored value
  int default_value;                    // also for a stored number that is none
  std::atomic<int> value = default_value;

  bool has(int number) const { return number >= 0 && static_cast<size_t>(number) < values.size(); }
};

constexpr image_value kInvert[] = {{"off", visca_camera_picture_flip_off},
                                   {"on", visca_camera_picture_flip_on}};
constexpr image_value kStabilizer[] = {{"off", visca_camera_stabilizer_off},
                                       {"on", visca_camera_stabilizer_on}};
constexpr image_value kSensitivity[] = {{"normal", visca_camera_high_sensitivity_off},
                                        {"high", visca_camera_high_sensitivity_on}};
constexpr image_value kIrFilter[] = {{"off", nullptr}, {"on", nullptr}, {"auto", nullptr}};

template <int Level>
int send_defog_level(visca_camera* camera) {
  return visca_camera_defog_level(camera, Level);
}

constexpr image_value kDefog[] = {{"off", visca_camera_defog_off},
                                  {"low", send_defog_level<1>},
                                  {"mid", send_defog_level<2>},
                                  {"high", send_defog_level<3>}};

constinit image_setting invert{kSettingInvertImage, kInvert, 0};
constinit image_setting stabilizer{kSettingStabilizeImage, kStabilizer, 1};
constinit image_setting sensitivity{kSettingSensitivity, kSensitivity, 1};
constinit image_setting ir_filter{kSettingIrFilter, kIrFilter, 2};
constinit image_setting defog{kSettingDefog, kDefog, 2};

// Held while a value is loaded, sent, or sent and kept: memory, store and camera end on the same one.
mutex values_lock;

void load_setting(image_setting& setting) {
  const mutex_lock lock(values_lock);
  int stored = setting.default_value;
  orb_read_nv(setting.key, &stored, sizeof stored);
  setting.value = setting.has(stored) ? stored : setting.default_value;
}

void load_word(const image_setting& setting, char* text, unsigned size) {
  copy_text(text, size, setting.values[static_cast<size_t>(setting.value.load())].word);
}

// The value whose word is `text`, or -1.
int find_value(const image_setting& setting, const char* text) {
  const auto found = std::ranges::find(setting.values, std::string_view(text), &image_value::word);
  return found == setting.values.end() ? -1 : static_cast<int>(found - setting.values.begin());
}

void keep_value(image_setting& setting, int value) REQUIRES(values_lock) {
  setting.value = value;
  orb_write_nv(setting.key, &value, sizeof value);
}

int send_value(const image_setting& setting, visca_camera* camera) {
  const mutex_lock lock(values_lock);
  return setting.values[static_cast<size_t>(setting.value.load())].command(camera);
}

int set_value(image_setting& setting, const char* text) {
  const int value = find_value(setting, text);
  if (value < 0) return -1;
  const mutex_lock lock(values_lock);
  if (value == setting.value) return 0;
  visca_camera* camera = visca_thread_data.camera;
  if (camera == nullptr) return -1;
  setting.values[static_cast<size_t>(value)].command(camera);
  keep_value(setting, value);
  return 0;
}

}  // namespace

void load_image_settings() {
  for (image_setting* setting : {&invert, &stabilizer, &sensitivity, &ir_filter, &defog})
    load_setting(*setting);
}

int image_invert() { return invert.value; }
int image_stabilizer() { return stabilizer.value; }
int image_sensitivity() { return sensitivity.value; }
int image_ir_filter() { return ir_filter.value; }
int image_defog() { return defog.value; }

int send_image_invert(visca_camera* camera) { return send_value(invert, camera); }
int send_image_stabilizer(visca_camera* camera) { return send_value(stabilizer, camera); }
int send_image_sensitivity(visca_camera* camera) { return send_value(sensitivity, camera); }
int send_image_defog(visca_camera* camera) { return send_value(defog, camera); }

void orb_load_camera_invert_image(char* text, unsigned size) { load_word(invert, text, size); }
void orb_load_camera_image_stabilizer(char* text, unsigned size) { load_word(stabilizer, text, size); }
void orb_load_camera_sensitivity(char* text, unsigned size) { load_word(sensitivity, text, size); }
void orb_load_camera_ir_filter(char* text, unsigned size) { load_word(ir_filter, text, size); }
void orb_load_camera_defog(char* text, unsigned size) { load_word(defog, text, size); }

int orb_set_camera_invert_image(const char* text) { return set_value(invert, text); }
int orb_set_camera_image_stabilizer(const char* text) { return set_value(stabilizer, text); }
int orb_set_camera_sensitivity(const char* text) { return set_value(sensitivity, text); }
int orb_set_camera_defog(const char* text) { return set_value(defog, text); }

int keep_ir_filter(const char* text) {
  const int value = find_value(ir_filter, text);
  if (value < 0) return -1;
  const mutex_lock lock(values_lock);
  if (value == ir_filter.value) return 0;
  keep_value(ir_filter, value);
  return 1;
}
