// The files of takes: what a listing takes, and a copy beside a bare loop over the same file. In the box.

#include <endian.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/file.h"
#include "base/file_copy.h"
#include "base/paths.h"
#include "base/trace.h"
#include "recorder/recorder_state.h"
#include "recorder/take_list.h"
#include "usb/bench_stick.h"
#include "usb/stored_files.h"
#include "xmp/xmp.h"

namespace {

namespace fs = std::filesystem;

constexpr char kStickFolder[] = "/run/bench/stick/";

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

// Of this thread: what the work costs on a machine that is shared.
double cpu_ms() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) * 1e-6;
}

template <typename Work>
double time_ms(Work work) {
  const int64_t start = monotonic_ns();
  work();
  return static_cast<double>(monotonic_ns() - start) * 1e-6;
}

void make_takes(int from, int to) {
  for (int take = from; take < to; ++take) {
    char id[40];
    snprintf(id, sizeof id, "%08x-8d5c-11ef-9c1a-0242ac120002", static_cast<unsigned>(take));
    std::string files;
    for (int i = 0; i < 5; ++i) {
      const std::string name = "Shaft 12_2026-03-09-14-05-59_" + std::to_string(take * 5 + i) + ".jpg";
      std::ofstream(std::string(paths::kUsbTakes) + "/" + name) << "12345678";
      if (i % 2 == 0) std::ofstream(std::string(paths::kStick) + "/" + name) << "1234";
      files += (i == 0 ? "" : ",") + (R"({"path":"/ApiVideos","name":")" + name + "\"}");
    }
    std::ofstream(std::string(paths::kUsbTakes) + "/" + id + ".json")
        << R"({"id":")" << id
        << R"(","name":"Shaft 12","asset_id":"MH 14","start_time":"2026-03-09-14-05-59",)"
        << R"("duration":"0:01:00","files":[)" << files << R"(],"note":""})";
  }
}

// At once, when each description is read, and when nothing has changed.
void measure_listings() {
  int takes = 0;
  for (const int count : {250, 500, 1000, 2000, 4000}) {
    make_takes(takes, count);
    takes = count;
    size_t length = 0;
    const auto list = [&length] { length = orb_get_recorder_files().size(); };
    const double first = time_ms(list);
    std::vector<double> times;
    times.reserve(21);
    const double before = cpu_ms();
    for (int round = 0; round < 21; ++round) times.push_back(time_ms(list));
    printf(
        "listing of %4d takes with 5 files each: all read %.1f ms, unchanged %.1f ms (median), %.1f ms on "
        "the "
        "processor, %zu KiB\n",
        count, first, median(times), (cpu_ms() - before) / 21, length / 1024);
  }
}

void copy_barely(const std::string& from, const std::string& to) {
  const unique_fd source(open(from.c_str(), O_RDONLY | O_CLOEXEC));
  const unique_fd target(open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  char block[4096];
  for (ssize_t count; (count = read(source.get(), block, sizeof block)) > 0;)
    if (write(target.get(), block, static_cast<size_t>(count)) != count) return;
  fsync(target.get());
}

// The worker's step, without the way to its thread.
void copy_as_worker() {
  static const stored_files kind{paths::kUsbTakes,     kTraceRecorder,      nullptr, false,
                                 {"", "", copy_entry}, {"", "", copy_entry}};
  const json_owner entry(json_tokener_parse(R"({"name":"large.mp4"})"));
  const file_task task{nullptr, nullptr, unique_fd(open(paths::kStick, O_RDONLY | O_DIRECTORY | O_CLOEXEC))};
  copy_entry(kind, entry.get(), task);
}

// As a take's copy to the USB store is made and followed.
void copy_as_completion(const std::string& from, const std::string& to) {
  const auto show = [](void*, int64_t copied, int64_t size) {
    const int percent = static_cast<int>(copied * 100 / size);
    if (percent != recorder.post_processing) set_post_processing(percent);
  };
  copy_file(from.c_str(), to.c_str(), show, nullptr);
}

void measure_copies(int mib) {
  const std::string from = paths::kUsbTakes + std::string("/large.mp4");
  const std::string to = std::string(kStickFolder) + "large.mp4";
  std::ofstream(from) << std::string(static_cast<size_t>(mib) << 20, 'x');
  std::vector<double> bare;
  std::vector<double> job;
  std::vector<double> completion;
  for (int round = 0; round < 21; ++round) {
    fs::remove(to);
    bare.push_back(time_ms([&] { copy_barely(from, to); }));
    fs::remove(to);
    job.push_back(time_ms(copy_as_worker));
    fs::remove(to);
    completion.push_back(time_ms([&] { copy_as_completion(from, to); }));
  }
  const double least = median(bare);
  printf("copy of %d MiB: bare loop %.1f ms, job %.3f of it, completion %.3f of it (medians)\n", mib, least,
         median(job) / least, median(completion) / least);
}

// A video with the index last, as in our takes.
std::string video(size_t mib) {
  std::string pictures = std::string("\0\0\0\0mdat", 8) + std::string(mib << 20, 'x');
  const uint32_t size = htobe32(static_cast<uint32_t>(pictures.size()));
  memcpy(pictures.data(), &size, sizeof size);
  return pictures + std::string("\0\0\0\x20moov", 8) + std::string(24, 'm');
}

void measure_insertions(size_t mib) {
  const std::string path = paths::kUsbTakes + std::string("/tagged.mp4");
  const std::string bytes = video(mib);
  std::vector<double> bare;
  std::vector<double> insertion;
  for (int round = 0; round < 21; ++round) {
    replace_file(path, bytes);
    bare.push_back(time_ms([&] { copy_barely(path, path + ".copy"); }));
    fs::remove(path + ".copy");
    insertion.push_back(time_ms([&] { orb_xmp_write(path.c_str(), {}); }));
  }
  printf("insertion of metadata into %zu MiB: bare loop %.1f ms, insertion %.1f ms, %.3f of it\n", mib,
         median(bare), median(insertion), median(insertion) / median(bare));
}

}  // namespace

int main() {
  fs::create_directories(paths::kUsbTakes);
  fs::create_directories(kStickFolder);
  plug(true);
  step_usb_stick([] { return false; });
  measure_copies(64);
  measure_insertions(64);
  measure_listings();
  plug(false);
  step_usb_stick([] { return false; });
  return 0;
}
