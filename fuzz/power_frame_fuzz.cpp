// Decodes any bytes as the power board's status frame; a bad sum must leave the readings alone.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "power_board/frame.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::vector<uint8_t> raw(data + 1, data + size);  // ends where its allocation ends
  for (const bool advanced : {false, true}) {
    power_board_readings readings;
    readings.board_time = data[0];
    const frame_check check = take_frame(raw, advanced, &readings);
    if (check.sum != 0 && readings.board_time != data[0]) abort();
    if (check.all_zero && check.sum != 0) abort();
  }
  return 0;
}
