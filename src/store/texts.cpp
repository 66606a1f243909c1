#include "store/texts.h"

#include <cstring>

#include "base/json.h"
#include "base/mutex.h"
#include "base/text.h"
#include "store/identity.h"
#include "store/settings.h"

namespace {

mutex texts_lock;
recorder_texts texts GUARDED_BY(texts_lock);

template <size_t Size>
void load_setting(uint32_t index, char (&text)[Size]) {
  orb_read_nv(index, text, Size - 1);  // the store's fields need not end with a zero; ours is longer
}

template <size_t Size>
void load_text(char (recorder_texts::*member)[Size], char* text, size_t size) {
  const mutex_lock lock(texts_lock);
  copy_text(text, size, texts.*member);
}

// The copy that was stored, for the settings, which are saved without the lock.
template <size_t Size>
recorder_texts set_text(char (recorder_texts::*member)[Size], const char* text) {
  const mutex_lock lock(texts_lock);
  char(&field)[Size] = texts.*member;
  memset(field, 0, Size);
  copy_text(field, Size, text);
  return texts;
}

// Hands the store all of our field: it keeps what its own takes.
template <size_t Size>
void set_setting(uint32_t index, char (recorder_texts::*member)[Size], const char* text) {
  const recorder_texts now = set_text(member, text);
  orb_write_nv(index, now.*member, Size);
}

}  // namespace

recorder_texts copy_recorder_texts() {
  const mutex_lock lock(texts_lock);
  return texts;
}

void load_recorder_texts() {
  const json_owner config = unit_config();
  recorder_texts loaded;
  load_setting(kSettingOperatorId, loaded.operator_id);
  load_setting(kSettingTitle, loaded.title);
  load_setting(kSettingFlowDirection, loaded.flow_direction);
  copy_text(loaded.filename, sizeof loaded.filename, loaded.title);
  copy_text(loaded.model_name, sizeof loaded.model_name, json_text(config.get(), "model_name"));
  copy_text(loaded.serial_number, sizeof loaded.serial_number, json_text(config.get(), "serial_number"));
  const mutex_lock lock(texts_lock);
  texts = loaded;
}

void orb_load_recorder_title(char* text, size_t size) { load_text(&recorder_texts::title, text, size); }

void orb_load_recorder_flow_direction(char* text, size_t size) {
  load_text(&recorder_texts::flow_direction, text, size);
}

void orb_load_recorder_operator_id(char* text, size_t size) {
  load_text(&recorder_texts::operator_id, text, size);
}

void orb_load_recorder_filename(char* text, size_t size) { load_text(&recorder_texts::filename, text, size); }

void orb_set_recorder_title(const char* text) { set_setting(kSettingTitle, &recorder_texts::title, text); }

void orb_set_recorder_flow_direction(const char* text) {
  set_setting(kSettingFlowDirection, &recorder_texts::flow_direction, text);
}

void orb_set_recorder_operator_id(const char* text) {
  set_setting(kSettingOperatorId, &recorder_texts::operator_id, text);
}

void orb_set_recorder_filename(const char* text) { set_text(&recorder_texts::filename, text); }
