// The readings of a moment: who the unit is, and what the data logger has.
#pragma once

#include "base/json.h"

// The unit's identity, date and time, session and history as texts, in the order in which the API lists them;
// null when memory has run out. Waits for Redis, at most 0.2 s. Any thread but the main loop's.
json_owner orb_get_logger_current_readings();
