// The laser's step of a refresh: takes its reading, and shows it or takes it away. Service thread.
#pragma once

struct orb_power_board;
struct power_board_readings;

void update_laser(orb_power_board* board, const power_board_readings& readings);
