// What the camera's encoder answers over HTTP: the response, and the statistics in its body. Pure parsers.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "supervisor/supervisor.h"

inline constexpr size_t kEncoderHeadLimit = 4096;
inline constexpr size_t kEncoderBodyLimit = 65536;

enum class response_step { complete, needs_more, malformed };

struct encoder_response {
  int status = 0;
  std::string_view body;  // inside the bytes that were parsed; empty without a Content-Length
  size_t length = 0;      // of the whole response
};

// The response at the start of `bytes`; `response` is filled when it is complete.
response_step parse_encoder_response(std::string_view bytes, encoder_response* response);

struct encoder_statistics {
  std::array<std::string, 2> channels;  // what the encoder says of its streams
  std::string temperature_text;         // as it was sent
  camera_temperatures temperatures;     // of a text that is not invalid
  bool invalid = false;                 // a temperature that cannot be: none of the three counts
};

// Nothing when `json` is no JSON object.
std::optional<encoder_statistics> parse_encoder_statistics(std::string_view json);
