#include "supervisor/encoder_response.h"

#include <strings.h>

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "base/json.h"
#include "base/text.h"

namespace {

constexpr std::string_view kVersion = "HTTP/1.1 ";
constexpr std::string_view kContentLength = "Content-Length:";
constexpr std::string_view kHeadEnd = "\r\n\r\n";
constexpr std::string_view kLineEnd = "\r\n";

constexpr char kNoStream[] = "No stream detected";
constexpr size_t kTemperatureWords = 7;
constexpr double kHighestTemperature = 100.0;  // °C
constexpr double kAbsoluteZero = -273.15;

// The decimal number that is all of `text`.
std::optional<size_t> whole_number(std::string_view text) {
  size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == text.npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) + 1 - first);
}

bool is_content_length(std::string_view line) {
  return line.size() >= kContentLength.size() &&
         strncasecmp(line.data(), kContentLength.data(), kContentLength.size()) == 0;
}

// The length that the head's lines tell: 0 when none does, nothing when it cannot be.
std::optional<size_t> body_length(std::string_view lines) {
  while (!lines.empty()) {
    const size_t end = lines.find(kLineEnd);
    const std::string_view line = lines.substr(0, end);
    if (is_content_length(line)) return whole_number(trimmed(line.substr(kContentLength.size())));
    lines = end == lines.npos ? std::string_view() : lines.substr(end + kLineEnd.size());
  }
  return 0;
}

std::vector<std::string> words_of(const std::string& text) {
  std::vector<std::string> words;
  for (size_t at = 0; (at = text.find_first_not_of(' ', at)) != text.npos;) {
    const size_t end = std::min(text.find(' ', at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

// The encoder lists each property for channel 1 and then for channel 2: the words alternate.
std::array<std::string, 2> split_channels(const std::string& text) {
  std::array<std::string, 2> channels;
  size_t index = 0;
  for (const std::string& word : words_of(text)) {
    std::string& channel = channels[index++ % 2];
    channel += (channel.empty() ? "" : " ") + word;
  }
  for (std::string& channel : channels) {
    if (channel.empty()) channel = kNoStream;
  }
  return channels;
}

// The number at the start of a word, whatever unit follows it.
camera_temperature temperature_of(const std::string& word) {
  char* end = nullptr;
  const double value = strtod(word.c_str(), &end);
  if (end == word.c_str() || !std::isfinite(value) || value < kAbsoluteZero) return {};
  return {value, true};
}

void read_temperatures(encoder_statistics* statistics) {
  std::vector<std::string> words = words_of(statistics->temperature_text);
  words.resize(std::min(words.size(), kTemperatureWords));
  camera_temperatures read;
  for (size_t i = 0; i + 1 < words.size(); ++i) {
    camera_temperature* one = words[i] == "+LENS"   ? &read.lens
                              : words[i] == "+FPGA" ? &read.fpga
                              : words[i] == "+CPU"  ? &read.cpu
                                                    : nullptr;
    if (one == nullptr) continue;
    *one = temperature_of(words[i + 1]);
    if (one->valid && one->value > kHighestTemperature) statistics->invalid = true;
  }
  if (!statistics->invalid) statistics->temperatures = read;
}

}  // namespace

response_step parse_encoder_response(std::string_view bytes, encoder_response* response) {
  if (!kVersion.starts_with(bytes.substr(0, kVersion.size()))) return response_step::malformed;
  const size_t head_size = bytes.substr(0, kEncoderHeadLimit).find(kHeadEnd);
  if (head_size == bytes.npos) {
    return bytes.size() < kEncoderHeadLimit ? response_step::needs_more : response_step::malformed;
  }
  const std::string_view head = bytes.substr(0, head_size);
  const std::string_view status_line = head.substr(0, head.find(kLineEnd));
  if (status_line.size() < kVersion.size() + 3) return response_step::malformed;
  const auto status = whole_number(status_line.substr(kVersion.size(), 3));
  const auto length = body_length(head.substr(status_line.size()));
  if (!status || !length || *length > kEncoderBodyLimit) return response_step::malformed;
  const std::string_view rest = bytes.substr(head_size + kHeadEnd.size());
  if (rest.size() < *length) return response_step::needs_more;
  response->status = static_cast<int>(*status);
  response->body = rest.substr(0, *length);
  response->length = head_size + kHeadEnd.size() + *length;
  return response_step::complete;
}

std::optional<encoder_statistics> parse_encoder_statistics(std::string_view json) {
  const json_owner object(json_tokener_parse(std::string(json).c_str()));
  if (!json_object_is_type(object.get(), json_type_object)) return std::nullopt;
  encoder_statistics statistics;
  statistics.channels = split_channels(as_utf8(json_text(object.get(), "encoder_status_str")));
  statistics.temperature_text = json_text(object.get(), "temp_status_str");
  read_temperatures(&statistics);
  return statistics;
}
