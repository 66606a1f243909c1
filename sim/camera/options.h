// The command line of the simulated camera. Its start values are the real unit's addresses.
#pragma once

#include <string>

namespace sim_camera {

struct options {
  std::string address = "192.168.0.127";
  int visca_port = 1000;
  int rtsp_port = 554;
  int http_port = 80;
  std::string control_path = "/run/bench/camera.ctl";
  bool picture = true;
};

// Reads the arguments into `into`. Result: false after saying on standard error what is wrong or what there
// is.
bool options_read(int argc, char** argv, options& into);

}  // namespace sim_camera
