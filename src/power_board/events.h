// The steps of a refresh after its status read that watch and average, each on the readings as they now are.
// Service thread.
#pragma once

struct orb_power_board;
struct power_board_readings;

void detect_events(orb_power_board* board, const power_board_readings& readings);
void average_battery(orb_power_board* board, const power_board_readings& readings);
void average_pressure(orb_power_board* board, const power_board_readings& readings);
void average_humidity(orb_power_board* board, const power_board_readings& readings);
