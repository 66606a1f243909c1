// The external stick through its life: a folder that is really mounted and unmounted stands for it.

#include "api/api_client.h"
#include "base/trace_reader.h"
#include "supervisor/status.h"
#include "usb/bench_stick.h"

namespace {

constexpr char kArchive[] = "/run/bench/stick/orb_733-00158_update_2.4.0.zip";

std::string traced() { return new_traces("SUPV"); }

void set_in_flight(int count) {
  std::ofstream("/sys/block/sdb/stat") << "   1 0 8 1 2 0 16 2   " << count << " 3 3\n";
}

std::string stick() {
  return std::string(stick_text(usb_stick_now())) + (orb_is_external_usb_mounted() ? ", mounted" : "") +
         (usb_stick_now().update_available ? ", update" : "");
}

bool eject() { return ask("POST", "/eject") == "{'status':'OK'}"; }

std::string after_a_step() { return step_usb_stick(is_update_on_stick), stick(); }

TEST(usb_stick, lives_from_plug_to_pull) {
  start_trace();
  EXPECT_EQ(after_a_step(), "removed");
  start_api();
  EXPECT_FALSE(eject());

  plug(true);
  step_usb_stick(is_update_on_stick);
  EXPECT_EQ(after_a_step(), "inserted, mounted");
  EXPECT_EQ(traced(), "usb in;update 0 0 0;");

  // Pulled without a word while a file on it is open; then it is closed.
  unique_fd open_file(open("/media/usb-cpy/file", O_CREAT | O_WRONLY | O_CLOEXEC, 0644));
  plug(false);
  EXPECT_EQ(after_a_step(), "inserted, mounted");
  open_file.reset();
  EXPECT_EQ(after_a_step(), "removed");
  EXPECT_EQ(traced(), "umount -1 16;usb out;");

  // Ejected while something is written, and asked for twice.
  std::ofstream(kArchive) << "PK";
  plug(true);
  EXPECT_EQ(after_a_step(), "inserted, mounted, update");
  step_status();
  EXPECT_TRUE(contains(ask("GET", "/status"), "'update_available':true"));
  set_in_flight(3);
  EXPECT_TRUE(eject());
  EXPECT_EQ(after_a_step(), "eject pending, update");
  EXPECT_TRUE(eject());
  open_file.reset(open("/media/usb-cpy/file", O_RDONLY | O_CLOEXEC));
  set_in_flight(0);
  EXPECT_EQ(after_a_step(), "eject pending, update");
  open_file.reset();
  EXPECT_EQ(after_a_step(), "ejected");
  EXPECT_FALSE(eject());

  // Out and in again while the second request is served, which is not for the new stick.
  plug(false);
  EXPECT_EQ(after_a_step(), "removed");
  remove(kArchive);
  plug(true);
  for (int second = 0; second < 3; ++second) EXPECT_EQ(after_a_step(), "inserted, mounted");
  EXPECT_EQ(traced(),
            "usb in;update 1 0 0;usb eject begin;io 3;io 0;umount start;eject umount -1 16;"
            "io 0;umount start;usb ejected;usb eject end;usb eject begin;usb in;update 0 0 0;"
            "usb eject end;");

  // Pulled while its eject waits.
  set_in_flight(1);
  EXPECT_TRUE(eject());
  step_usb_stick(is_update_on_stick);
  plug(false);
  EXPECT_EQ(stick(), "eject pending");
  remove("/sys/block/sdb/stat");
  EXPECT_EQ(after_a_step(), "removed");
  EXPECT_EQ(traced(), "usb eject begin;io 1;io 0;umount start;usb ejected;");
}

// The status goes on, an eject is refused, and the stick may be pulled before it is mounted.
TEST(usb_stick, a_mount_that_hangs_holds_nobody) {
  start_trace();
  start_usb_stick(is_update_on_stick);
  is_mount_held = true;
  for (const bool is_pulled : {true, false}) {
    plug(true);
    const int64_t start = monotonic_ns();
    for (int second = 0; second < 3; ++second) step_status(), sleep_ms(500);
    EXPECT_EQ(orb_request_supervisor_eject(), -1);
    EXPECT_LT(monotonic_ns() - start, 1700 * kNanosecondsPerMillisecond);
    if (is_pulled) plug(false);
    is_mount_held = false;
    EXPECT_TRUE(await([] { return stick() == "inserted, mounted"; }));
    EXPECT_TRUE(!is_pulled || await([] { return stick() == "removed"; }));
    is_mount_held = true;
  }
  EXPECT_EQ(orb_request_supervisor_eject(), 1);
  EXPECT_TRUE(await([] { return stick() == "ejected"; }, 0.5)) << "at once";
  EXPECT_EQ(traced(),
            "usb in;update 0 0 0;usb out;usb in;update 0 0 0;usb eject begin;io 0;umount start;usb ejected;");
}

}  // namespace
