// The installer with a stick and deploy scripts of its own; the reboot is a matter of the whole daemon.
#include "installer/installer.h"

#include "base/trace_reader.h"

namespace {

const std::string kStick = "/media/usb-cpy/orb_733-00158_update_";

void put_archive(const std::string& version) { std::ofstream(kStick + version + ".zip") << "PK"; }

std::string status() {
  char target[16], step[16], first[32], second[32];
  orb_load_installer_status(target, sizeof target, step, sizeof step, first, sizeof first, second,
                            sizeof second);
  return std::string(target) + "|" + step + "|" + first + "|" + second;
}

TEST(installer, the_archive_whose_name_sorts_last) {
  const std::pair<const char*, const char*> rows[] = {
      {"2.4.0", "2.4.0"}, {"2.10.0", "2.4.0"}, {"3_beta", "beta"}, {"3\xFF\xC3", "3??"}};
  for (const auto& [added, expected] : rows) {
    put_archive(added);
    EXPECT_EQ(loaded(orb_load_installer_software_update_version), expected) << added;
  }
  fs::create_directory(kStick + "9.9.9.zip");
  fs::create_symlink("nowhere", kStick + "9.9.8.zip");
  ASSERT_EQ(mkfifo((kStick + "9.9.7.zip").c_str(), 0600), 0);
  fs::create_symlink(kStick + "2.4.0.zip", kStick + "9.0.zip");
  EXPECT_EQ(loaded(orb_load_installer_software_update_version), "9.0");
  EXPECT_EQ(loaded(orb_get_installer_software_update_available, 30), kStick.substr(0, 29));
}

// Board and camera have no update, and a refusal holds nothing.
TEST(installer, shows_the_progress_of_the_script_and_refuses_a_second_update) {
  for (const auto& trigger :
       {orb_trigger_software_update, orb_trigger_firmware_update, orb_trigger_camera_update}) {
    EXPECT_EQ(trigger(), 0);
    EXPECT_EQ(status(), "none|0 of 0|not active|not active");
  }
  for (const char* version : {"2.3.9", "2.4.0 $(id)'s"}) put_archive(version);
  const std::string long_word(140, 'x'), accents = "1\u00E9\u00E9\u00E9\u00E9\u00E9\u00E9\u00E9\u00E9";
  const std::tuple<std::string, std::string, std::string> lines[] = {
      // as printed, in the progress file, and as shown
      {"stage:copying files", "stage:copying files", "1 of 11|stage|files"},
      {" : stage :: copying:2", " : stage :: copying:2", "2 of 11|stage|copying"},
      {"syncing: ", "syncing: ", "2 of 11|stage|copying"},
      {"", "", "2 of 11|stage|copying"},
      {"a: " + long_word + " b", "a: " + long_word.substr(0, 124), "5 of 11|a|" + long_word.substr(0, 16)},
      {accents + ": b", accents + ": b", "6 of 11|" + accents.substr(0, 15) + "|b"},
      {"bad\xFF: \xC3", "bad?: ?", "7 of 11|bad?|?"}};
  for (const auto& line : lines) std::ofstream("/tmp/lines", std::ios::app) << get<0>(line) << "\n";
  std::ofstream(paths::kDeployScript)
      << ("printf %s \"$1\" >/tmp/deployed; i=0; while IFS= read -r line; do echo \"$line\"; i=$((i+1));"
          " while [ ! -e /tmp/go$i ]; do sleep 0.01; done; done </tmp/lines; exit 5");
  start_trace();
  ASSERT_EQ(orb_start_installer(), 0);
  EXPECT_NE(orb_trigger_software_update(), 0);
  int number = 0;
  std::string expected;
  for (const auto& [printed, mirrored, shown] : lines) {
    expected += "sw '" + mirrored + "';";
    EXPECT_TRUE(await([&, mirrored = mirrored, shown = shown] {
      return read_file(paths::kUpdateStatus, 200) == mirrored && status() == "software|" + shown &&
             traces("ISTR") == expected;
    })) << printed
        << " -> " << status() << traces("ISTR");
    const int64_t start = monotonic_ns();
    EXPECT_EQ(orb_trigger_software_update(), 0);
    EXPECT_LT(monotonic_ns() - start, 50 * kNanosecondsPerMillisecond);
    std::ofstream("/tmp/go" + std::to_string(++number)) << "";
  }
  EXPECT_TRUE(await([&] { return traces("ISTR") == expected + "sw exit 5;"; }));
  EXPECT_EQ(read_file("/tmp/deployed", 200), kStick + "2.4.0 $(id)'s.zip");
}

}  // namespace
