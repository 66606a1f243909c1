#include "sim/camera/control_commands.h"

#include <charconv>
#include <cstdio>
#include <optional>

namespace sim_camera {
namespace {

constexpr char kOk[] = "ok\n";
constexpr int kMaxDelayMs = 60000;
constexpr int kMaxTemperature = 200;

enum class takes { nothing, on_off, number };

struct control_row {
  std::string_view name;
  std::string_view help;
  std::string (*act)(bench_camera&, int);
  takes argument;
  int top = 0;  // of a number; the lowest is 0
};

template <bool fault_switches::*fault>
std::string set_fault(bench_camera& camera, int on) {
  camera.block.faults.*fault = on != 0;
  return kOk;
}

std::string set_ack_delay(bench_camera& camera, int ms) {
  camera.block.faults.ack_delay_ms = ms;
  return kOk;
}

std::string drop(bench_camera& camera, int) {
  camera.drop_requested = true;
  return kOk;
}

std::string refuse_connect(bench_camera& camera, int on) {
  camera.refuse_connect = on != 0;
  return kOk;
}

template <bool encoder_state::*fault>
std::string set_encoder_fault(bench_camera& camera, int on) {
  camera.encoder.*fault = on != 0;
  return kOk;
}

template <int encoder_state::*temperature>
std::string set_temperature(bench_camera& camera, int degrees) {
  camera.encoder.*temperature = degrees;
  return kOk;
}

template <size_t channel>
std::string set_channel(bench_camera& camera, int on) {
  camera.encoder.channels[channel] = on != 0;
  return kOk;
}

std::string set_light(bench_camera& camera, int percent) {
  camera.light_percent = percent;
  return kOk;
}

std::string set_zoom(bench_camera& camera, int position) {
  block_place_zoom(camera.block, position, camera.now_ms);
  return kOk;
}

std::string set_picture_silent(bench_camera& camera, int on) {
  camera.picture_silent = on != 0;
  return kOk;
}

std::string drop_picture(bench_camera& camera, int) {
  ++camera.picture_drops;
  return kOk;
}

std::string_view on_off(bool on) { return on ? "on" : "off"; }

void append_row(std::string& text, std::string_view name, std::string_view value) {
  text.append(name).append(" ").append(value).append("\n");
}

std::string show(bench_camera& camera, int) {
  block_model& block = camera.block;
  block_advance(block, camera.now_ms);
  char line[96];
  std::string text;
  append_row(text, "power", on_off(block.power));
  std::snprintf(line, sizeof line, "%d (%.1fx, digital value 0x%02X)", lens_position(block.lens, kZoom),
                lens_magnification(block.lens), static_cast<unsigned>(lens_digital_value(block.lens)));
  append_row(text, "zoom", line);
  append_row(text, "digital_zoom",
             block.lens.digital_on ? (block.lens.combined ? "combined" : "separate") : "off");
  std::snprintf(line, sizeof line, "0x%04X %s", static_cast<unsigned>(lens_position(block.lens, kFocus)),
                block.lens.auto_focus ? "auto" : "manual");
  append_row(text, "focus", line);
  for (size_t i = 0; i < kModes; ++i) append_row(text, kModeNames[i], block.settings.modes[i]);
  for (size_t i = 0; i < kLevels; ++i) {
    append_row(text, kLevelRanges[i].name, std::to_string(block.settings.levels[i]));
  }
  append_row(text, "zoom_report", on_off(block.zoom_report.on));
  append_row(text, "focus_report", on_off(block.focus_report.on));
  append_row(text, "socket_1", block.sockets[0].busy ? "busy" : "free");
  append_row(text, "socket_2", block.sockets[1].busy ? "busy" : "free");
  append_row(text, "light", std::to_string(camera.light_percent));
  append_row(text, "silent", on_off(block.faults.silent));
  append_row(text, "split", on_off(block.faults.split));
  append_row(text, "merge", on_off(block.faults.merge));
  append_row(text, "garble", on_off(block.faults.garble));
  append_row(text, "full", on_off(block.faults.full));
  append_row(text, "refuse_connect", on_off(camera.refuse_connect));
  append_row(text, "picture_silent", on_off(camera.picture_silent));
  append_row(text, "ack_delay", std::to_string(block.faults.ack_delay_ms));
  return text;
}

std::string list_titles(bench_camera& camera, int) { return titles_listing(camera.block.titles); }

std::string list_log(bench_camera& camera, int) {
  std::string text;
  for (const received_packet& received : camera.block.log) {
    char digits[24];
    std::snprintf(digits, sizeof digits, "%lld", static_cast<long long>(received.time_ms));
    text += digits;
    for (const uint8_t byte : received.bytes) {
      std::snprintf(digits, sizeof digits, " %02X", byte);
      text += digits;
    }
    text += '\n';
  }
  return text;
}

std::string help(bench_camera&, int);

constexpr control_row kControls[] = {
    {"help", "this list", help, takes::nothing},
    {"show", "power, lens, settings, sockets and faults", show, takes::nothing},
    {"titles", "the title memory", list_titles, takes::nothing},
    {"log", "received packets: ms since the start, bytes", list_log, takes::nothing},
    {"silent", "swallow every packet and answer nothing", set_fault<&fault_switches::silent>, takes::on_off},
    {"ack_delay", "ms before every answer", set_ack_delay, takes::number, kMaxDelayMs},
    {"split", "send byte by byte", set_fault<&fault_switches::split>, takes::on_off},
    {"merge", "send two packets together", set_fault<&fault_switches::merge>, takes::on_off},
    {"garble", "send random bytes", set_fault<&fault_switches::garble>, takes::on_off},
    {"full", "refuse every command: buffer full", set_fault<&fault_switches::full>, takes::on_off},
    {"drop", "close the links now", drop, takes::nothing},
    {"refuse_connect", "close the listening socket", refuse_connect, takes::on_off},
    {"light", "brightness of the picture in percent", set_light, takes::number, 100},
    {"picture_silent", "the encoder hangs: no pictures, connections stay", set_picture_silent, takes::on_off},
    {"picture_drop", "close the encoder's connections now", drop_picture, takes::nothing},
    {"lens", "temperature that the encoder tells, in degrees", set_temperature<&encoder_state::lens>,
     takes::number, kMaxTemperature},
    {"fpga", "the same", set_temperature<&encoder_state::fpga>, takes::number, kMaxTemperature},
    {"cpu", "the same", set_temperature<&encoder_state::cpu>, takes::number, kMaxTemperature},
    {"channel_1", "whether the encoder tells of a stream", set_channel<0>, takes::on_off},
    {"channel_2", "the same", set_channel<1>, takes::on_off},
    {"encoder_silent", "accept and answer nothing", set_encoder_fault<&encoder_state::silent>, takes::on_off},
    {"encoder_404", "know no page", set_encoder_fault<&encoder_state::not_found>, takes::on_off},
    {"encoder_cut", "close within a page", set_encoder_fault<&encoder_state::cut>, takes::on_off},
    {"encoder_no_length", "tell no Content-Length", set_encoder_fault<&encoder_state::no_length>,
     takes::on_off},
    {"zoom", "put the lens at a position at once", set_zoom, takes::number, kCombinedEnd},
};

std::string help(bench_camera&, int) {
  constexpr std::string_view kArguments[] = {"", " on|off", " N"};
  std::string text;
  for (const control_row& row : kControls) {
    std::string usage(row.name);
    usage += kArguments[static_cast<size_t>(row.argument)];
    if (usage.size() < 24) usage.resize(24, ' ');
    append_row(text, usage, row.help);
  }
  return text;
}

std::optional<int> parse_argument(const control_row& row, std::string_view text) {
  switch (row.argument) {
    case takes::nothing:
      return text.empty() ? std::optional(0) : std::nullopt;
    case takes::on_off:
      return text == "on" ? std::optional(1) : text == "off" ? std::optional(0) : std::nullopt;
    case takes::number:
      break;
  }
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < 0 || number > row.top)
    return std::nullopt;
  return number;
}

}  // namespace

std::string control_execute(bench_camera& camera, std::string_view line) {
  while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
  const size_t space = line.find(' ');
  const std::string_view name = line.substr(0, space);
  const std::string_view argument = space == std::string_view::npos ? "" : line.substr(space + 1);
  for (const control_row& row : kControls) {
    if (row.name != name) continue;
    const std::optional<int> value = parse_argument(row, argument);
    if (!value)
      return "error: " + std::string(name) + " does not take '" + std::string(argument) + "', see help\n";
    return row.act(camera, *value);
  }
  return "error: unknown command '" + std::string(name) + "', see help\n";
}

}  // namespace sim_camera
