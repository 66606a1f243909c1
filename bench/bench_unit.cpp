// Figures of the running daemon: how long a request takes to reach the camera, how steady the board's refresh
// is, what the daemon costs when nothing happens. Plays the camera itself, so that it sees each byte as it
// arrives.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <thread>

#include "base/clock.h"
#include "base/paths.h"
#include "base/thread.h"
#include "system/unit.h"

namespace {

enum class manner { absent, answering, silent, flapping };

std::atomic<manner> camera_manner = manner::answering;
std::atomic<int64_t> zoom_arrived_ns = 0;

void answer(int fd) {
  unsigned char packet[256];
  const ssize_t count = recv(fd, packet, sizeof packet, 0);
  const int64_t now = monotonic_ns();
  for (ssize_t i = 0; i + 5 < count; ++i) {
    const bool zoom = packet[i + 2] == 0x04 && packet[i + 3] == 0x07 && (packet[i + 4] & 0xF0) == 0x20;
    if (packet[i] == 0x81 && zoom) zoom_arrived_ns = now;
  }
  if (camera_manner == manner::answering) send(fd, "\x90\x41\xFF\x90\x51\xFF", 6, MSG_NOSIGNAL);
}

void serve_link(int fd) {
  const manner now = camera_manner;
  const int64_t start = monotonic_ns();
  while (camera_manner == now && (now != manner::flapping || monotonic_ns() - start < 200'000'000)) {
    pollfd wait{fd, POLLIN, 0};
    if (poll(&wait, 1, 50) > 0) {
      char byte;
      if (recv(fd, &byte, 1, MSG_PEEK) <= 0) break;
      answer(fd);
    }
  }
  close(fd);
}

int listen_on(const char* host, uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  inet_pton(AF_INET, host, &address.sin_addr);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(fd, 4) != 0)
    perror("bench: a port");
  return fd;
}

int listen_as_camera(uint16_t port) { return listen_on("192.168.0.127", port); }

void play_camera() {
  for (;;) {
    if (camera_manner == manner::absent) {
      usleep(50'000);
      continue;
    }
    const int listener = listen_as_camera(1000);
    while (camera_manner != manner::absent) {
      pollfd wait{listener, POLLIN, 0};
      if (poll(&wait, 1, 50) > 0) serve_link(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    }
    close(listener);
  }
}

double percentile(std::vector<double> values, double part) {
  if (values.empty()) return NAN;
  std::sort(values.begin(), values.end());
  return values[static_cast<size_t>(part * static_cast<double>(values.size() - 1))];
}

// What two threads of this machine need to connect, ask and answer.
double round_trip_ms() {
  constexpr int kRounds = 200;
  const int listener = listen_on("127.0.0.1", 1001);
  std::thread echo([listener] {
    for (int i = 0; i < kRounds; ++i) {
      const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
      char byte = 0;
      if (recv(fd, &byte, 1, 0) == 1) send(fd, &byte, 1, MSG_NOSIGNAL);
      close(fd);
    }
  });
  std::vector<double> times_ms;
  for (int i = 0; i < kRounds; ++i) {
    usleep(10'000);
    const int64_t start = monotonic_ns();
    tell(connect_to(1001), "x");
    times_ms.push_back(static_cast<double>(monotonic_ns() - start) * 1e-6);
  }
  echo.join();
  close(listener);
  return percentile(times_ms, 0.5);
}

void measure_request_to_camera() {
  std::vector<double> times_ms;
  for (int i = 0; i < 200; ++i) {
    zoom_arrived_ns = 0;
    const int64_t start = monotonic_ns();
    http("POST", "/api/camera/zoom/increment");
    await([] { return zoom_arrived_ns != 0; }, 1);
    times_ms.push_back(static_cast<double>(zoom_arrived_ns - start) * 1e-6);
    http("POST", "/api/camera/zoom/stop");
    usleep(350'000);  // acknowledged, nothing outstanding
  }
  const double round_trip = round_trip_ms();
  printf(
      "request to the first VISCA byte: median %.3f ms, 99 %% %.3f ms; a round trip %.3f ms, %.2f of that\n",
      percentile(times_ms, 0.5), percentile(times_ms, 0.99), round_trip,
      percentile(times_ms, 0.5) / round_trip);
}

// Times of the refresh lines of the last `seconds`, from the service log.
std::vector<double> refresh_times_ms(size_t from) {
  std::vector<double> times;
  std::istringstream trace(read_text("/media/usb99/trace").substr(from));
  for (std::string line; std::getline(trace, line);) {
    const size_t at = line.rfind('[');
    if (line.rfind("PBRF: refresh", 0) != 0 || at == std::string::npos) continue;
    const char* time = line.c_str() + at + 1;  // HH:MM:SS.mmm
    const auto minutes = static_cast<double>(strtol(time, nullptr, 10) * 60 + strtol(time + 3, nullptr, 10));
    times.push_back((minutes * 60 + strtod(time + 6, nullptr)) * 1000);
  }
  return times;
}

constexpr double kLate_ms = 5;
constexpr double kRefresh_ms = 100;

// How far each lies from a steady 100 ms grid: that of its ten seconds, because the wall clock is corrected
// meanwhile.
std::vector<double> grid_distances_ms(const std::vector<double>& times) {
  constexpr size_t kGridLength = 100;
  std::vector<double> distances;
  for (size_t first = 0; first < times.size(); first += kGridLength) {
    std::vector<double> offsets;
    for (size_t i = first; i < std::min(first + kGridLength, times.size()); ++i)
      offsets.push_back(times[i] - kRefresh_ms * static_cast<double>(i));
    const double middle = percentile(offsets, 0.5);
    for (const double offset : offsets) distances.push_back(std::fabs(offset - middle));
  }
  return distances;
}

double percent_in_time(const std::vector<double>& distances) {
  const auto good = std::ranges::count_if(distances, [](double distance) { return distance <= kLate_ms; });
  return 100.0 * static_cast<double>(good) / static_cast<double>(distances.size());
}

void print_refreshes(const char* world, const std::vector<double>& times) {
  const std::vector<double> distances = grid_distances_ms(times);
  double gap = 0;
  for (size_t i = 1; i < times.size(); ++i) gap = std::max(gap, times[i] - times[i - 1]);
  printf("refreshes, %-17s %4zu, %6.2f %% within 5 ms of their time, worst %.0f ms, longest gap %.0f ms\n",
         world, times.size(), percent_in_time(distances), percentile(distances, 1), gap);
}

// How late somebody is who only sleeps, with the same precedence: what the machine does to anybody.
std::vector<double> sleep_beside(const std::atomic<bool>& ended) {
  run_before_others();
  std::vector<double> late_ms;
  for (int64_t next_ns = monotonic_ns(); !ended;) {
    next_ns += static_cast<int64_t>(kRefresh_ms) * kNanosecondsPerMillisecond;
    const timespec next{next_ns / 1'000'000'000, next_ns % 1'000'000'000};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    late_ms.push_back(static_cast<double>(monotonic_ns() - next_ns) * 1e-6);
  }
  return late_ms;
}

// Eight clients read as fast as they can and write a hundred times a second together; beside them `act`.
void measure_refreshes(
    const char* world, manner manner, double seconds, void (*act)(int64_t end_ns) = [](int64_t) {}) {
  camera_manner = manner;
  usleep(500'000);
  const size_t from = read_text("/media/usb99/trace").size();
  std::atomic<bool> ended = false;
  std::atomic<long> requests = 0;
  std::vector<std::thread> clients;
  clients.reserve(9);
  for (int i = 0; i < 8; ++i) {
    clients.emplace_back([&ended, &requests] {
      int64_t next_write = monotonic_ns();
      while (!ended) {
        if (monotonic_ns() >= next_write) {
          http("PUT", "/api/camera/zoom/speed", R"({"zoom_speed":4})");
          next_write += 80'000'000;
        }
        http("GET", "/api/camera/zoom/position");
        ++requests;
      }
    });
  }
  std::vector<double> late_ms;
  clients.emplace_back([&] { late_ms = sleep_beside(ended); });
  const int64_t end_ns = monotonic_ns() + static_cast<int64_t>(seconds * 1e9);
  act(end_ns);
  sleep_ms((end_ns - monotonic_ns()) / kNanosecondsPerMillisecond);
  ended = true;
  for (std::thread& client : clients) client.join();
  print_refreshes(world, refresh_times_ms(from));
  printf("  meanwhile %.0f reads a second; one who only sleeps: %.2f %%, worst %.0f ms\n",
         static_cast<double>(requests) / seconds, percent_in_time(late_ms), percentile(late_ms, 1));
}

// What the display polls, with its connection; a plain read beside it tells what of it the connection costs.
void measure_status(const char* path, int clients, int requests) {
  std::vector<std::vector<double>> of_client(static_cast<size_t>(clients));
  std::vector<std::thread> threads;
  threads.reserve(of_client.size());
  for (std::vector<double>& times_ms : of_client) {
    threads.emplace_back([path, requests, &times_ms] {
      for (int i = 0; i < requests; ++i) {
        const int64_t start = monotonic_ns();
        http("GET", path);
        times_ms.push_back(static_cast<double>(monotonic_ns() - start) * 1e-6);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<double> all;
  for (const std::vector<double>& times_ms : of_client)
    all.insert(all.end(), times_ms.begin(), times_ms.end());
  printf("GET %s, %d client%s: median %.3f ms, 99 %% %.3f ms\n", path, clients, clients == 1 ? "" : "s",
         percentile(all, 0.5), percentile(all, 0.99));
}

template <typename Condition>
void measure_while(const char* work, Condition goes_on) {
  std::vector<double> times_ms;
  const int64_t begin = monotonic_ns();
  while (goes_on()) {
    for (int i = 0; i < 20; ++i) {
      const int64_t start = monotonic_ns();
      http("GET", "/api/status");
      times_ms.push_back(static_cast<double>(monotonic_ns() - start) * 1e-6);
    }
  }
  printf("GET /api/status during %s of %.1f s: %zu, median %.3f ms, 99 %% %.3f ms, worst %.3f ms\n", work,
         static_cast<double>(monotonic_ns() - begin) * 1e-9, times_ms.size(), percentile(times_ms, 0.5),
         percentile(times_ms, 0.99), percentile(times_ms, 1));
}

// A take that was interrupted: the daemon's start copies it twice, to the USB store and with its metadata.
void leave_a_take() {
  const std::string guid = "0f7e3a52-8d5c-11ef-9c1a-0242ac120002";
  for (const char* folder : {paths::kInternalTakes, paths::kUsbTakes})
    std::filesystem::create_directories(folder);
  const std::string picture = paths::kInternalTakes + std::string("/a_1.mp4");
  write_text(picture, "");
  std::filesystem::resize_file(picture, 640 << 20);
  write_text(paths::kUsbTakes + ("/" + guid) + ".json", R"({"name":"a","start_time":"1"})");
  write_text(paths::kTakeGuid, guid);
}

// Files without blocks on the USB store cost the stick their whole size all the same.
void measure_during_copy() {
  constexpr int kFiles = 10;
  std::string list;
  for (int i = 0; i < kFiles; ++i) {
    const std::string name = "copied_" + std::to_string(i) + ".mp4";
    write_text("/media/usb99/ApiVideos/" + name, "");
    std::filesystem::resize_file("/media/usb99/ApiVideos/" + name, 64 << 20);
    list += (i == 0 ? "{\"name\":\"" : ",{\"name\":\"") + name + "\"}";
  }
  write_text("/dev/usb_ext1", "");
  const auto copy = [](const std::string& files) {
    return http("POST", "/api/camera/recorder/copy", "{\"files\":[" + files + "]}").body ==
           R"({"status":"OK"})";
  };
  if (!await([&] { return copy(list); })) return;
  measure_while("a copy", [&] { return !copy(""); });
  std::filesystem::remove("/dev/usb_ext1");
}

// Beside clients that list a thousand takes, one of which changes each time, and that set what a slow disk
// flushes.
void measure_during_lanes() {
  const std::string folder = paths::kUsbTakes + std::string("/");
  const auto describe = [&folder](int take) {
    const std::string id = "0f7e3a52-8d5c-11ef-9c1a-" + std::to_string(100'000'000'000 + take);
    std::string files;
    for (int i = 0; i < 5; ++i)
      files += (i == 0 ? R"({"name":")" : R"(,{"name":")") + id + std::to_string(i) + "\"}";
    write_text(folder + id + ".json", R"({"id":")" + id + R"(","files":[)" + files + "]}");
  };
  for (int take = 0; take < 1000; ++take) describe(take);
  ctl("board", "slow fsync 300");
  std::atomic<bool> ended = false;
  std::thread lister([&] {
    for (int i = 0; !ended; ++i) {
      describe(i % 1000);
      http("GET", "/api/camera/recorder/files");
    }
  });
  std::thread setter([&ended] {
    for (int i = 0; !ended; ++i)
      http("PUT", "/api/camera/defog", i % 2 == 0 ? R"({"defog":"low"})" : R"({"defog":"high"})");
  });
  const int64_t end_ns = monotonic_ns() + 5'000'000'000;
  measure_while("listings and flushes of 0.3 s", [end_ns] { return monotonic_ns() < end_ns; });
  ended = true;
  lister.join();
  setter.join();
  ctl("board", "slow fsync 0");
  for (const std::filesystem::directory_entry& file : std::filesystem::directory_iterator(folder))
    if (file.path().extension() == ".json") std::filesystem::remove(file);
}

double cpu_s(pid_t pid) {
  clockid_t clock = 0;
  timespec used{};
  clock_getcpuclockid(pid, &clock);
  clock_gettime(clock, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

double resident_mib(pid_t pid) {
  return number_after(read_text("/proc/" + std::to_string(pid) + "/status"), "VmRSS:") / 1024;
}

void measure_idle(pid_t pid) {
  const double before = cpu_s(pid);
  usleep(10'000'000);
  printf("idle: %.2f %% of a core, %.1f MiB resident\n", (cpu_s(pid) - before) * 10, resident_mib(pid));
}

void measure_growth(pid_t pid) {
  for (int i = 0; i < 1000; ++i) http("GET", "/api/camera/zoom/position");
  const double before = resident_mib(pid);
  const int64_t start = monotonic_ns();
  for (int i = 0; i < 100'000; ++i) {
    if (i % 4 == 0) {
      http("PUT", "/api/camera/zoom/speed", R"({"zoom_speed":4})");
    } else {
      http("GET", "/api/camera/focus/position");
    }
  }
  const double seconds = static_cast<double>(monotonic_ns() - start) * 1e-9;
  printf("100000 requests one after the other: %.0f a second, resident %.1f MiB before, %.1f MiB after\n",
         1e5 / seconds, before, resident_mib(pid));
}

bool is_stick(const char* state) {
  return await([state] { return http("GET", "/api/status").body.find(state) != std::string::npos; }, 30);
}

// Whatever can wait does: a reset of the logger and a setting (the API waits for their flushes), a stick that
// comes, is ejected and comes again, and within the minute the logger's save.
void keep_the_disks_waiting(int64_t end_ns) {
  bool all = http("POST", "/api/logger/reset").body == kOk;
  all = http("PUT", "/api/camera/defog", R"({"defog":"low"})").body == kOk && all;
  constexpr int64_t kStickTakes_ns = 20'000'000'000;
  while (monotonic_ns() + kStickTakes_ns < end_ns) {
    write_text("/dev/usb_ext1", "");
    all = is_stick(R"("inserted")") && all;
    all = http("POST", "/api/eject").body == kOk && is_stick(R"("ejected")") && all;
    std::filesystem::remove("/dev/usb_ext1");
    all = is_stick(R"("removed")") && all;
  }
  if (!all) puts("bench: not all was done");
}

// `seconds` of refreshes in each.
void measure_worlds(child& redis, double seconds) {
  measure_refreshes("camera answering", manner::answering, seconds);
  measure_refreshes("camera absent", manner::absent, seconds);
  measure_refreshes("camera silent", manner::silent, seconds);
  measure_refreshes("camera flapping", manner::flapping, seconds);
  const int encoder = listen_as_camera(80);  // the kernel accepts for it
  measure_refreshes("encoder silent", manner::answering, seconds);
  close(encoder);
  redis.signal(SIGSTOP);
  measure_refreshes("redis frozen", manner::answering, seconds);
  for (const char* call : {"slow fsync 2000", "slow mount 3000"}) ctl("board", call);
  measure_refreshes("all of it waits", manner::answering, std::max(seconds, 65.0), keep_the_disks_waiting);
  for (const char* call : {"slow fsync 0", "slow mount 0"}) ctl("board", call);
  redis = child();
  measure_refreshes("redis stopped", manner::answering, seconds);
}

}  // namespace

// With an argument only the board's refresh, so many seconds in each world.
int main(int count, char** arguments) {
  setvbuf(stdout, nullptr, _IOLBF, 0);
  signal(SIGPIPE, SIG_IGN);
  write_text("/media/usb99/trace_mask", "0x00010000");
  child redis = start_redis();
  std::thread(play_camera).detach();
  leave_a_take();
  const int64_t start_ns = monotonic_ns();
  const child daemon = start_daemon();
  while (http("GET", "/api/led/mode").body.empty() && monotonic_ns() - start_ns < 5'000'000'000) usleep(500);
  printf("from exec to the first answer: %.0f ms\n", static_cast<double>(monotonic_ns() - start_ns) * 1e-6);
  measure_while("a completion", [] { return access(paths::kTakeGuid, F_OK) == 0; });
  usleep(3'000'000);
  if (count > 1) return measure_worlds(redis, strtod(arguments[1], nullptr)), 0;
  measure_request_to_camera();
  measure_idle(daemon.pid());
  for (const char* path : {"/api/camera/focus/speed", "/api/status"}) measure_status(path, 1, 2000);
  measure_status("/api/status", 8, 2000);
  measure_during_copy();
  measure_during_lanes();
  measure_worlds(redis, 10);
  measure_growth(daemon.pid());
  return 0;
}
