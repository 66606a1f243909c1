// The last order to a lens, watched until it is certain that the camera has it, so that no lens drives on
// because its stop was lost: the camera may refuse a command or leave it unanswered, the queue may be full,
// the link may go. A reply does not say which command it is for; but an order may be given again as long as
// it is the last one. Plain records: no clock, no camera; who owns a watch locks it.
#pragma once

#include <cstdint>

struct visca_camera;

enum class lens_effect {
  stops,   // the drive
  drives,  // until it is stopped
  ends,    // a drive, by something else: a position, the automatic focus
};

struct lens_order {
  lens_effect effect = lens_effect::stops;
  int (*plain)(visca_camera* camera) = nullptr;  // or else
  int (*with_value)(visca_camera* camera, int value) = nullptr;
  int value = 0;
};

// The camera's link and queue at one moment.
struct lens_link {
  uint32_t number = 0;
  uint32_t lost_commands = 0;
  int64_t lost_ns = 0;  // when the last was lost
  bool idle = false;    // nothing waits, and nothing is without its answer
};

struct lens_watch {
  lens_order order;      // the last one
  bool driving = false;  // the lens may be: it was told to, and no other order has arrived for certain
  bool watched = false;  // the order may not have arrived
  bool queued = false;   // and is in the queue, or was
  lens_link link;        // as it was before
  int64_t queued_ns = 0;
  int64_t through_ns = 0;  // when the queue was first seen idle behind it; 0 not yet
  int losses = 0;          // since it was first given
  bool doubted = false;    // a stop is given twice: a late reply to what was lost before may pass for its own
};

enum class lens_need { nothing, again, stop };

// The queue has taken the order, or refused it; `again`, when it was repeated. From now on it is the last
// one.
void note_lens_order(lens_watch& watch, const lens_order& order, bool taken, bool again,
                     const lens_link& before, int64_t now_ns);

// What has to be queued now. An order is repeated at once when the queue has refused it or the link is
// another one, and each 0.25 s while commands are lost, without an end; not while it may wait in the queue,
// but then after 0.75 s, lest a silent camera's queue fill with it. It has arrived when half a second has
// gone without a loss behind an idle queue. Unless it is `held`, another order than a stop becomes one with
// the link, or when it has been lost four times: the camera may refuse it for good.
lens_need step_lens_watch(lens_watch& watch, const lens_link& now, bool held, int64_t now_ns);

// Whether the camera has answered the order, as far as it can be told.
bool is_lens_order_through(const lens_watch& watch, const lens_link& now);
