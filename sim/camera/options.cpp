#include "sim/camera/options.h"

#include <getopt.h>

#include <charconv>
#include <cstdio>
#include <string_view>

namespace sim_camera {
namespace {

constexpr option kOptions[] = {
    {"address", required_argument, nullptr, 'a'},
    {"visca-port", required_argument, nullptr, 'v'},
    {"rtsp-port", required_argument, nullptr, 'r'},
    {"http-port", required_argument, nullptr, 'h'},
    {"control", required_argument, nullptr, 'c'},
    {"no-picture", no_argument, nullptr, 'n'},
    {nullptr, 0, nullptr, 0},
};

bool read_port(std::string_view text, int& port) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  return error == std::errc{} && end == text.data() + text.size() && port > 0 && port < 65536;
}

bool read_one(int letter, options& into) {
  switch (letter) {
    case 'a':
      into.address = optarg;
      return true;
    case 'v':
      return read_port(optarg, into.visca_port);
    case 'r':
      return read_port(optarg, into.rtsp_port);
    case 'h':
      return read_port(optarg, into.http_port);
    case 'c':
      into.control_path = optarg;
      return true;
    case 'n':
      into.picture = false;
      return true;
    default:
      return false;
  }
}

}  // namespace

bool options_read(int argc, char** argv, options& into) {
  bool good = true;
  for (int letter = 0; good && (letter = getopt_long(argc, argv, "", kOptions, nullptr)) != -1;) {
    good = read_one(letter, into);
  }
  if (good && optind == argc) return true;
  std::fprintf(stderr,
               "usage: sim_camera [--address IPV4] [--visca-port N] [--rtsp-port N] [--http-port N] "
               "[--control PATH] [--no-picture]\n");
  return false;
}

}  // namespace sim_camera
