// The trace log to the byte, and its mask by file and by call.
#include "base/trace.h"

#include "tests/files.h"

std::string flushed;

// In the C library's place: notes what is flushed.
int fsync(int fd) {
  flushed += fs::read_symlink("/proc/self/fd/" + std::to_string(fd)).filename().string() + " ";
  return 0;
}

namespace {

const std::regex kSuffix(R"( \[([01]\d|2[0-3]):[0-5]\d:[0-5]\d\.\d{3}\]\n)");

// The whole trace, each line's suffix replaced by "|".
std::string traced() { return std::regex_replace(content(paths::kTrace), kSuffix, "|\n"); }

void start(std::string_view mask) {
  std::ofstream(paths::kTraceMask) << mask;
  init_trace();
  ASSERT_TRUE(await([] {
    for (const auto& fd : fs::directory_iterator("/proc/self/fdinfo"))
      if (contains(content(fd.path().c_str()), "inotify wd")) return true;
    return false;
  })) << "the mask is not watched";
}

TEST(trace_log, is_right_to_the_byte) {
  std::ofstream(paths::kTrace) << "the last run";
  start("7FFFFFFB");
  EXPECT_EQ(content(paths::kTraceOld), "the last run");
  const std::string x(600, 'x');
  trace(18, "no tag");
  trace(kTraceMaskMonitor, "its bit is clear");
  trace(40, "%s", x.c_str());  // bit 8 is its bit
  trace(kTraceHttpServer, "%s", x.c_str());
  trace(kTraceApi, "starting on port %d\n", 60102);
  trace(kTraceApi, "title '%s' %s", "a\nHAPI: b\t\x1B\x7F \u00E4", "\n");
  trace_data(kTraceApi, "twenty", "\x1F\x20\x7E\x7F\xFFlmnopqrstuvwxyz", 20);
  trace_data(kTraceApi, "whole", "0123456789abcdef", 16);
  trace_data(2, "off", "0123", 4);
  EXPECT_EQ(traced(), "start mask 0x7FFFFFFB|\nno tag|\n" + x.substr(0, 493) +
                          "|\nHSRV: " + x.substr(0, 487) +
                          "|\nHAPI: starting on port 60102\n|\n"
                          "HAPI: title 'a.HAPI: b... \u00E4' .|\n"
                          "HAPI: twenty:|\n"
                          "HAPI:  1F207E7FFF6C6D6E6F70717273747576 . ~..lmnopqrstuv|\n"
                          "HAPI:  7778797A                         wxyz            |\n"
                          "HAPI: whole:|\n"
                          "HAPI:  30313233343536373839616263646566 0123456789abcdef|\n");
}

// A pipe that nobody reads stands for a stick that hangs.
TEST(trace_log, keeps_nobody_waiting_for_the_stick) {
  ASSERT_EQ(mkfifo(paths::kTrace, 0600), 0);
  const unique_fd stick(open(paths::kTrace, O_RDWR | O_NONBLOCK));
  chmod(paths::kTrace, 0200);  // so that it is not moved away
  start("10");
  start_trace_writer();
  const int64_t start_ns = monotonic_ns();
  for (int i = 0; i < 20'000; ++i) trace(kTraceApi, "%05d of a line", i);
  EXPECT_LT(monotonic_ns() - start_ns, 2000 * kNanosecondsPerMillisecond);
  std::thread last([] { drain_trace(), trace(kTraceApi, "%05d of a line", -1), drain_trace(); });
  std::string text;
  char block[4096];
  EXPECT_TRUE(await([&] {
    for (ssize_t count; (count = read(stick.get(), block, sizeof block)) > 0;)
      text.append(block, static_cast<size_t>(count));
    return contains(text, "-0001");
  }));
  last.join();
  std::istringstream lines(text.substr(text.find('\n') + 1));
  long next = 0;
  for (std::string line; std::getline(lines, line) && line.find("-0001") == std::string::npos;) {
    if (contains(line, "lost")) {
      next += strtol(line.c_str(), nullptr, 10);
    } else {
      ASSERT_EQ(strtol(line.c_str() + 6, nullptr, 10), next++);
    }
  }
  EXPECT_EQ(next, 20'000);
  EXPECT_TRUE(contains(text, " lines lost\n"));
}

TEST(trace_mask, by_file_and_by_call) {
  start("1f");
  const char* const kTexts =  // with the mask afterwards
      "0x2F\n>0000002F|xyz\n>0000002F| 0x4f and more\n>0000004F|\n6F\n>0000004F|000000000000005F>00000000";
  std::string expected = "start mask 0x0000001F|\n";
  for (const auto& [text, mask] : rows_of(kTexts)) {
    write_all(unique_fd(open(paths::kTraceMask, O_WRONLY)).get(), text);  // one event
    expected += "modify mask 0x" + mask + "|\n";
    EXPECT_TRUE(await([&] { return traced() == expected; })) << traced() << expected;
  }
  EXPECT_EQ(set_trace_mask(0xAB), 0);
  EXPECT_EQ(flushed, "trace_mask usb99 ");
  EXPECT_TRUE(await([] { return get_trace_mask() == 0xAB; })) << "something is left of the longer text";
}

}  // namespace
