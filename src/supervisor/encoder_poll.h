// The encoder's pages, asked for every 5 s: the camera's temperatures and what the encoder says of its
// streams.
#pragma once

#include <array>

#include "supervisor/supervisor.h"

struct ev_loop;

struct encoder_report {
  camera_temperatures temperatures;
  std::array<char[64], 2> channels{};  // what the encoder says of its streams
};

// Main loop, once.
void start_encoder_poll(struct ev_loop* loop);

// What the last poll that got through has told. Any thread.
encoder_report last_encoder_report();
