// The supervisor watches the whole unit: it gathers a status record every second, decides on temperature
// warnings and the thermal shutdown, asks whether the camera answers and what its encoder says, and ends the
// unit. No operation waits.
#pragma once

#include <cstdint>
#include <limits>

struct ev_loop;

inline constexpr double kUnknownTemperature = std::numeric_limits<double>::quiet_NaN();

// A temperature of the camera in °C; NaN and invalid until the encoder has told it.
struct camera_temperature {
  double value = kUnknownTemperature;
  bool valid = false;
};

struct camera_temperatures {
  camera_temperature lens;
  camera_temperature fpga;
  camera_temperature cpu;
};

struct temperature_warnings {
  bool cold = false;
  bool freezing = false;
  bool warm = false;
  bool hot = false;
  bool shutdown = false;           // of the board or the processor, never of the camera
  bool camera_overheated = false;  // only told
};

// The status record; before the supervisor runs it is as it stands here.
struct supervisor_values : temperature_warnings {
  char battery[21] = "unknown";   // its type
  char battery_level[8] = "?";    // "25%" to "100%"
  char version[256] = "";         // first line of the release file
  char update_status[63] = "";    // what the deploy script last said
  bool update_available = false;  // on the stick
  bool camera_reachable = false;  // answers the ping
  bool recording = false;
  bool paused = false;
  int post_processing = 0;            // percent, 0 when no take is being completed
  int64_t emmc_kb = 0;                // free
  int64_t usb_kb = 0;                 // free
  char usb_percent[8] = "0%";         // of the USB store that is in use
  char external_usb[16] = "removed";  // "inserted", "eject pending", "ejected", "removed"
  char time_remaining[16] = "0 MIN";
  char recording_time[16] = "00:00:00";                            // that the stores last
  char storage_time[16] = "00:00:00";                              // that the USB store lasts
  double supply_volts = std::numeric_limits<double>::quiet_NaN();  // NaN until there is a board
  double board_temperature = kUnknownTemperature;                  // °C
  double processor_temperature = kUnknownTemperature;              // mean of the cores
  double core_temperature[4] = {kUnknownTemperature, kUnknownTemperature, kUnknownTemperature,
                                kUnknownTemperature};
  camera_temperatures camera;
  char channel[2][64] = {"", ""};  // what the encoder says of its streams
  char tilt_angle[16] = "";
  char direction[8] = "??";
  char motor_type[8] = "none";  // "height", "pan", "none"
  char height[16] = "";
};

// Starts the threads, once. `flag` is 1 and means nothing. Main thread.
void orb_init_supervisor(int flag);

// Starts what comes by time: the status record and the camera's echo every second, the encoder's pages every
// 5 s. Main thread, once, before the loop runs.
void start_supervisor_timers(struct ev_loop* loop);

// A copy of the status record. Any thread.
void orb_load_supervisor_values(supervisor_values* values);
