// The trace log to the byte, its mask by file and by call, and a stick that hangs.
#include "base/trace.h"

#include <fcntl.h>

#include <fstream>
#include <regex>

#include "tests/await.h"
#include "tests/files.h"

std::string flushed;

// In the C library's place: notes what is flushed.
int fsync(int fd) {
  flushed += fs::read_symlink("/proc/self/fd/" + std::to_string(fd)).filename().string() + " ";
  return 0;
}

namespace {

// The whole trace, each line's time replaced by "|".
std::string traced() {
  static const std::regex kTime(R"( \[([01]\d|2[0-3]):[0-5]\d:[0-5]\d\.\d{3}\]\n)");
  return std::regex_replace(content(paths::kTrace), kTime, "|\n");
}

void start(std::string_view mask) {
  std::ofstream(paths::kTraceMask) << mask;
  init_trace();
}

// What comes from the network forges no line, a long line keeps its end, and the last run's log is kept.
TEST(trace_log, is_right_to_the_byte) {
  std::ofstream(paths::kTrace) << "the last run";
  start("7FFFFFFB");
  EXPECT_EQ(content(paths::kTraceOld), "the last run");
  const std::string x(600, 'x');
  trace(kTraceMaskMonitor, "its bit is clear");
  trace(40, "%s", x.c_str());  // bit 8 is its bit
  trace(kTraceHttpServer, "%s", x.c_str());
  trace(kTraceApi, "starting on port %d\n", 60102);
  trace(kTraceApi, "title '%s' %s", "a\nHAPI: b\t\x1B\x7F \u00E4", "\n");
  trace_data(kTraceApi, "twenty", "\x1F\x20\x7E\x7F\xFFlmnopqrstuvwxyz", 20);
  trace_data(kTraceApi, "whole", "0123456789abcdef", 16);
  trace_data(2, "off", "0123", 4);
  EXPECT_EQ(traced(), "start mask 0x7FFFFFFB|\n" + x.substr(0, 493) + "|\nHSRV: " + x.substr(0, 487) +
                          "|\nHAPI: starting on port 60102\n|\n"
                          "HAPI: title 'a.HAPI: b... \u00E4' .|\n"
                          "HAPI: twenty:|\n"
                          "HAPI:  1F207E7FFF6C6D6E6F70717273747576 . ~..lmnopqrstuv|\n"
                          "HAPI:  7778797A                         wxyz            |\n"
                          "HAPI: whole:|\n"
                          "HAPI:  30313233343536373839616263646566 0123456789abcdef|\n");
}

// A pipe that nobody reads stands for a stick that hangs: nobody waits for it, and each line is there or
// counted as lost.
TEST(trace_log, keeps_nobody_waiting_for_the_stick) {
  ASSERT_EQ(mkfifo(paths::kTrace, 0600), 0);
  const unique_fd stick(open(paths::kTrace, O_RDWR | O_NONBLOCK));
  chmod(paths::kTrace, 0200);  // so that it is not moved away
  start("10");
  start_trace_writer();
  const int64_t start_ns = monotonic_ns();
  for (int i = 0; i < 20'000; ++i) trace(kTraceApi, "%05d of a line", i);
  EXPECT_LT(monotonic_ns() - start_ns, 2000 * kNanosecondsPerMillisecond);
  std::atomic<bool> drained = false;
  std::thread last([&] { drain_trace(), trace(kTraceApi, "the last"), drained = drain_trace(); });
  std::string text;
  EXPECT_TRUE(await([&] {
    const bool was_drained = drained;
    char block[4096];
    for (ssize_t count; (count = read(stick.get(), block, sizeof block)) > 0;)
      text.append(block, static_cast<size_t>(count));
    return was_drained;
  }));
  last.join();
  long told = 0;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);)
    told += line.ends_with(" lines lost") ? strtol(line.c_str(), nullptr, 10) : line.starts_with("HAPI: ");
  EXPECT_EQ(told, 20'001);
  EXPECT_NE(text.find(" lines lost\n"), text.npos);
}

// A text that is none leaves the mask, and one by call leaves nothing of the longer text before it.
TEST(trace_mask, by_file_and_by_call) {
  start("8000001f");
  ASSERT_TRUE(await([] { return traced().ends_with("TMSK: monitoring trace mask|\n"); }));
  std::string expected = traced() + "TMSK: notify 16|\nTMSK: modified|\n";
  for (const auto& [text, mask] :
       {std::pair("0x2F\n", "2F"), {"xyz\n", "2F"}, {" 0x4f and more\n", "4F"}, {"000000000000005F", "00"}}) {
    write_all(unique_fd(open(paths::kTraceMask, O_WRONLY)).get(), text);  // one event
    expected += std::string("modify mask 0x000000") + mask + "|\n";
    EXPECT_TRUE(await([&] { return traced() == expected; })) << traced() << expected;
  }
  EXPECT_EQ(set_trace_mask(0xAB), 0);
  EXPECT_EQ(flushed, "trace_mask usb99 ");
  EXPECT_TRUE(await([] { return get_trace_mask() == 0xAB; }));
}

}  // namespace
