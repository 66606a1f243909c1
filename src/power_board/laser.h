// The laser's step of a refresh: takes its reading, and shows it or takes it away. Its modes and operations
// stand in power_board.h. Service thread.
#pragma once

struct orb_power_board;
struct power_board_readings;

void update_laser(orb_power_board* board, const power_board_readings& readings);
