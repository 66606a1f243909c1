// Feeds the encoder's bytes to the response parser: a complete response lies inside the bytes, no shorter
// piece of it is complete, and its body is read as statistics.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "supervisor/encoder_response.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  encoder_response response;
  if (parse_encoder_response(bytes, &response) != response_step::complete) return 0;
  if (response.length > size || response.body.size() > kEncoderBodyLimit) abort();
  if (!response.body.empty() && response.body.end() != bytes.begin() + response.length) abort();
  encoder_response part;
  const std::string_view shorter = bytes.substr(0, response.length - 1);
  if (parse_encoder_response(shorter, &part) != response_step::needs_more) abort();
  const auto statistics = parse_encoder_statistics(response.body);
  if (!statistics) return 0;
  for (const camera_temperature& one :
       {statistics->temperatures.lens, statistics->temperatures.fpga, statistics->temperatures.cpu}) {
    if (one.valid ? !(one.value <= 100.0) : !std::isnan(one.value)) abort();
  }
  return 0;
}
