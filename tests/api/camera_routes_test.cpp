// What the sessions of the camera's routes hide, and what they cannot have: positions and distances to the
// digit, a camera that is not there, and a hold's full time.
#include "camera/lens_loops.h"
#include "power_board/power_board.h"
#include "store/settings.h"
#include "tests/api/api_client.h"
#include "tests/visca/fake_camera.h"

namespace {

struct CameraApi : testing::Test {
  stepped_link link;

  void SetUp() override {
    link.camera->zoom_position = 14000;
    link.camera->focus_position = 4096;
    orb_init_nv();
    orb_create_zoom_loop();
    start_api();
  }
};

TEST_F(CameraApi, TellsWhereTheLensesAreAndRefusesWithoutACamera) {
  const std::string kOk = ",'status':'OK'}", kBad = "{'status':'BAD_REQUEST'}";
  const std::string zoom = "{'zoom_position':14000,'zoom_magnification':'11x'";
  EXPECT_EQ(ask("GET", "/camera/focus/position"),
            "{'focus_position':4096,'max_depth_of_field':'217 ft','min_depth_of_field':'177 ft'}");
  EXPECT_EQ(ask("GET", "/1.0/camera/zoom") + ask("GET", "/1.0/camera/focus"), "{'zoom':14000}{'focus':4096}");
  const int64_t start = monotonic_ns();
  EXPECT_EQ(ask("POST", "/camera/zoom/increment"), zoom + kOk);
  link.expect("0723 0700");  // not held again within half a second
  EXPECT_GE(monotonic_ns() - start, 500 * kNanosecondsPerMillisecond);
  visca_thread_data.camera = nullptr;
  EXPECT_EQ(ask("POST", "/camera/zoom/stop"), "{'zoom_position':-1,'zoom_magnification':'?'" + kOk);
  EXPECT_EQ(ask("PUT", "/camera/zoom/position", "{'zoom_position':1}"), kBad);
  EXPECT_EQ(ask("PUT", "/camera/invert_image", "{'invert_image':'on'}"), kBad);
  EXPECT_EQ(ask("POST", "/1.0/camera", "{'command':'zoom_stop'}"), "{}");
  EXPECT_EQ(ask("GET", "/1.0/camera"), "{'zoom':-1,'focus':-1}");
}

// Computed apart, to the last digit of a single-precision power.
TEST_F(CameraApi, VersionOneDistance) {
  static orb_power_board board;
  board.laser.distance = 12.5;
  const std::tuple<uint32_t, std::string, int> rows[] = {{kViscaNotReported, "181.68106680213361", -1},
                                                         {7499, "32.404968249936516", 5},
                                                         {7500, "28.167560277991655", 6},
                                                         {41000, "1.0513311719906522", 0},
                                                         {41001, "1.6211305054610112", 7}};
  for (const auto& [focus, distance, refreshes] : rows) {
    link.camera->focus_position = focus;
    board.laser.invalid_count = refreshes;
    power_board_instance = refreshes < 0 ? nullptr : &board;
    EXPECT_EQ(ask("GET", "/1.0/orb"),
              "{'distance':" + distance + ",'tolerance':0.10000000000000001," +
                  "'lrf-distance':" + (refreshes >= 0 && refreshes < 6 ? "12.5}" : "0.0}"));
  }
}

}  // namespace
