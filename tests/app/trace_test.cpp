// The trace log to the byte, and its mask by file and by call.
#include "app/trace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>

#include "base/clock.h"
#include "base/file.h"
#include "base/paths.h"

namespace fs = std::filesystem;

namespace {

const std::regex kSuffix(R"( \[([01]\d|2[0-3]):[0-5]\d:[0-5]\d\.\d{3}\]\n)");

std::string content(const char* path) { return read_file(path, 1 << 20).value_or("nothing"); }
// The whole trace, each line's suffix replaced by "|".
std::string traced() { return std::regex_replace(content(paths::kTrace), kSuffix, "|\n"); }

void put(const char* path, std::string_view text) { std::ofstream(path) << text; }

// One write at the start of the mask file: one event.
void overwrite_mask(std::string_view text) {
  const unique_fd fd(open(paths::kTraceMask, O_WRONLY));
  write_all(fd.get(), text);
}

bool await(const std::function<bool()>& reached) {
  for (int i = 0; i < 4000 && !reached(); ++i) sleep_ms(1);
  return reached();
}

bool is_watching() {
  for (const auto& fd : fs::directory_iterator("/proc/self/fdinfo"))
    if (content(fd.path().c_str()).find("inotify wd") != std::string::npos) return true;
  return false;
}

void start(std::string_view mask) {
  put(paths::kTraceMask, mask);
  init_trace();
  ASSERT_TRUE(await(is_watching));
}

TEST(trace_log, lines_to_the_byte) {
  start("7FFFFFFF");
  const std::string x(600, 'x');
  std::istringstream tags(
      "SUPV CPNG CPST ITLP HAPI PWRB VSIO FSLP ZMLP RCDR ISTR OSDP CMRA NVPC LGGR HTMT PBRF HSRV");
  std::string tag, expected = "start mask 0x7FFFFFFF|\n";
  for (int level = 0; tags >> tag; ++level) {
    trace(level, "level %d", level);
    expected += tag + ": level " + std::to_string(level) + "|\n";
  }
  trace(18, "no tag");
  trace(kTraceMaskMonitor, "its bit is clear");
  trace(40, "%s", x.c_str());
  trace(kTraceHttpServer, "%s", x.c_str());
  trace(kTraceHttpServer, "%s", x.substr(0, 487).c_str());
  trace(kTraceApi, "starting on port %d\n", 60102);
  const std::string cut = "HSRV: " + x.substr(0, 487) + "|\n";
  expected += "no tag|\n" + x.substr(0, 493) + "|\n" + cut + cut;
  EXPECT_EQ(traced(), expected + "HAPI: starting on port 60102\n|\n");
  set_trace_mask(0x100);
  EXPECT_TRUE(await([] { return traced().ends_with("modify mask 0x00000100|\n"); }));
  trace(40, "bit 8 is its bit");
  trace(kTraceApi, "off");
  EXPECT_TRUE(traced().ends_with("modify mask 0x00000100|\nbit 8 is its bit|\n"));
}

TEST(trace_log, data_rows) {
  start("10");
  std::string bytes;
  for (int i = 0; i < 20; ++i) bytes += static_cast<char>("\x1F\x20\x7E\x7F\xFF"[i % 5]);
  trace_data(kTraceApi, "twenty", bytes.data(), 20);
  trace_data(kTraceApi, "whole", "0123456789abcdef", 16);
  trace_data(kTraceApi, "none", nullptr, 0);
  trace_data(kTraceApi, "negative", nullptr, -1);
  trace_data(kTraceVisca, "off", bytes.data(), 20);
  EXPECT_EQ(traced(),
            "start mask 0x00000010|\n"
            "HAPI: twenty:|\n"
            "HAPI:  1F207E7FFF1F207E7FFF1F207E7FFF1F . ~... ~... ~...|\n"
            "HAPI:  207E7FFF                          ~..            |\n"
            "HAPI: whole:|\n"
            "HAPI:  30313233343536373839616263646566 0123456789abcdef|\n"
            "HAPI: none:|\n"
            "HAPI: negative:|\n");
}

TEST(trace_log, last_run_is_kept) {
  put(paths::kTraceOld, "the run before");
  put(paths::kTrace, "the last run");
  init_trace();
  EXPECT_EQ(content(paths::kTraceOld), "the last run");
  EXPECT_EQ(traced(), "start mask 0x00000000|\n");
  EXPECT_EQ(content(paths::kTraceMask), "0x00000000");
  EXPECT_EQ(get_trace_mask(), 0U);
}

TEST(trace_log, without_a_stick) {
  fs::remove("/media/usb99");
  init_trace();
  trace(kTraceApi, "nowhere");
  EXPECT_EQ(get_trace_mask(), 0U);
  EXPECT_EQ(set_trace_mask(0xFF), -1);
  fs::create_directory("/media/usb99");  // a stick that comes late starts nothing
  EXPECT_EQ(set_trace_mask(0xFF), 0);
  trace(kTraceApi, "nowhere");
  EXPECT_EQ(content(paths::kTraceMask), "0x000000FF");
  EXPECT_EQ(get_trace_mask(), 0U);
  EXPECT_FALSE(fs::exists(paths::kTrace));
}

TEST(trace_mask, texts_written_to_the_file) {
  start("1f");
  const std::pair<std::string_view, uint32_t> rows[] = {// the mask afterwards
                                                        {"0x2F\n", 0x2F},
                                                        {"xyz\n", 0x2F},
                                                        {"\n", 0x2F},
                                                        {"0X3f\n", 0x3F},
                                                        {" 0x4f and more\n", 0x4F},
                                                        {"000000000000005F", 0},
                                                        {"80000000\n", 0x80000000},
                                                        {"0x10\n", 0x10}};
  std::string expected = "start mask 0x0000001F|\n";
  for (const auto& [text, mask] : rows) {
    if (get_trace_mask() == 0x80000000) expected += "TMSK: notify 16|\nTMSK: modified|\n";
    overwrite_mask(text);
    char line[32];
    snprintf(line, sizeof line, "modify mask 0x%08X|\n", mask);
    expected += line;
    EXPECT_TRUE(await([&] { return traced() == expected; })) << text << traced();
    EXPECT_EQ(get_trace_mask(), mask);
  }
  trace(kTraceVisca, "bit 6");
  trace(kTraceApi, "bit 4");
  EXPECT_EQ(traced(), expected + "HAPI: bit 4|\n");
}

TEST(trace_mask, set_by_call) {
  start("0x0000001F and a long tail\nof two lines");
  const auto await_mask = [](uint32_t mask) { return await([=] { return get_trace_mask() == mask; }); };
  for (const uint32_t mask : {0xFFFFFFFFU, 0x10U, 0xABU}) {
    EXPECT_EQ(set_trace_mask(mask), 0);
    EXPECT_TRUE(await_mask(mask));
  }
  EXPECT_EQ(content(paths::kTraceMask), "0x000000AB");
  put(paths::kTraceMask, "00000300");  // emptied first
  EXPECT_TRUE(await_mask(0x300));
  fs::permissions(paths::kTraceMask, fs::perms::owner_read);
  EXPECT_EQ(set_trace_mask(1), -1);
}

}  // namespace
