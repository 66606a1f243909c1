// The camera thread, the loops and the API, in their real time, against a camera that fails: the lens comes
// to rest. With ORB_LENS_RUN=0 (50, 100, 150) fifty runs from there are made, and each may take a second.

#include "camera/lens_loops.h"
#include "camera/modes.h"
#include "sim/camera/block_model.h"
#include "tests/api/api_client.h"
#include "tests/visca/fake_camera.h"

namespace {

using sim_camera::block_model;

struct failing_camera {
  fake_camera socket;
  std::atomic<bool> dropped = false;  // the link is closed, and none is taken
  std::atomic<uint32_t> links = 0;
  std::mutex lock;
  block_model block;
  std::jthread thread{[this](const std::stop_token& end) {
    while (!end.stop_requested()) serve(), sleep_ms(1);
  }};

  void serve() {
    const std::lock_guard guard(lock);
    if (dropped) socket.hang_up();
    if (!dropped && !socket.stream() && socket.accept_link(0)) block_new_link(block), ++links;
    uint8_t bytes[4096];
    const ssize_t count = recv(socket.stream().get(), bytes, sizeof bytes, MSG_DONTWAIT);
    if (count == 0) socket.hang_up();
    const int64_t now_ms = monotonic_ns() / kNanosecondsPerMillisecond;
    if (count > 0) block_receive(block, {bytes, static_cast<size_t>(count)}, now_ms);
    for (const auto& out : block_take_output(block, now_ms))
      send(socket.stream().get(), out.data(), out.size(), MSG_NOSIGNAL);
  }
};

struct LensFaults : testing::Test {
  failing_camera camera;
  std::mt19937 random;
  std::string lens;
  sim_camera::axis_id axis{};
  int position = 0;  // that is asked for; a drive's target is an end

  int draw(int from, int to) { return std::uniform_int_distribution(from, to)(random); }
  bool is_up() const {
    return camera.links == visca_thread_data.link_number && visca_link_is_up(&visca_thread_data);
  }
  static int waiting() {
    const visca_camera* queue = visca_thread_data.camera;
    return (queue->insert_index - queue->extract_index + kViscaRingSize) % kViscaRingSize;
  }
  bool is_driving() {
    const std::lock_guard guard(camera.lock);
    const sim_camera::axis& moved = camera.block.lens.axes[axis];
    return axis_busy(moved) && moved.target != position;
  }
  void act() {
    const std::string path = "/camera/" + lens;
    const auto old_client = [&](const char* command) {
      ask("POST", "/1.0/camera", "{'command':'" + lens + command + "}}");
    };
    const int choice = draw(0, 5);
    if (choice < 2) {
      ask("PUT", path + "/position", "{'" + lens + "_position':" + std::to_string(position) + "}");
    } else if (choice == 2) {
      old_client(lens == "zoom" ? "_tele','params':{'speed':0" : "_far','params':{'speed':0");
      sleep_ms(draw(0, 300));
      old_client("_stop','params':{");
    } else {
      ask("POST", path + (draw(0, 1) == 0 ? "/increment" : "/decrement"));
      sleep_ms(choice == 3 ? 600 : draw(0, 300));  // it ends by itself, or
      ask("POST", path + "/stop");
    }
    sleep_ms(draw(0, 100));
  }
  // The fault: refusals, silence, the loss of the link, or silence behind a full queue.
  void fail(int kind, int begins_ms, int lasts_ms) {
    const auto set = [&](bool on) {
      const std::lock_guard guard(camera.lock);
      (kind == 0 ? camera.block.faults.full : camera.block.faults.silent) = on;
      camera.dropped = kind == 2 && on;
    };
    sleep_ms(begins_ms);
    set(true);
    while (kind == 3 && visca_camera_gain_up(visca_thread_data.camera) == 0) continue;
    sleep_ms(lasts_ms);
    set(false);
  }
  // In milliseconds, how long after the camera's recovery the lens came to rest.
  int64_t run(int seed) {
    random.seed(static_cast<unsigned>(seed));
    lens = draw(0, 1) == 0 ? "zoom" : "focus";
    axis = lens == "zoom" ? sim_camera::kZoom : sim_camera::kFocus;
    position = lens == "zoom" ? 15000 : 0x8000;
    {
      const std::lock_guard guard(camera.lock);
      camera.block.lens.auto_focus = false;
      lens_place(camera.block.lens, axis, position + draw(-2000, 2000));
    }
    const int begins_ms = draw(0, 800);
    std::jthread fault([&, lasts_ms = draw(100, 3000)] { fail(seed % 4, begins_ms, lasts_ms); });
    ask("POST", "/camera/" + lens + "/increment");
    sleep_ms(begins_ms / 2);
    for (int n = draw(1, 4); n > 0; --n) act();
    ask("POST", "/camera/" + lens + "/stop");
    fault.join();
    EXPECT_TRUE(await([&] { return is_up() && waiting() < 5; }, 60));
    const int64_t recovery = monotonic_ns();
    EXPECT_TRUE(await([&] { return !is_driving(); }, 5)) << "seed " << seed;
    const int64_t took = monotonic_ns() - recovery;
    sleep_ms(400);
    EXPECT_FALSE(is_driving()) << "seed " << seed;
    return took / kNanosecondsPerMillisecond;
  }
};

TEST_F(LensFaults, EndAtRest) {
  start_detached_thread("camera", visca_thread_procedure, &visca_thread_data);
  orb_create_zoom_loop();
  orb_create_focus_loop();
  start_api();
  keep_focus_mode(camera_mode::manual);
  for (const char* path : {paths::kZoomSpeed, paths::kFocusSpeed}) write_value_file(path, 0);
  ASSERT_TRUE(await([&] { return is_up(); }));
  const char* from = getenv("ORB_LENS_RUN");
  const int first = from == nullptr ? 16 : std::stoi(from), count = from == nullptr ? 2 : 50;
  int64_t longest_ms = 0;
  for (int seed = first; seed < first + count; ++seed) longest_ms = std::max(longest_ms, run(seed));
  printf("%d runs from %d on: at rest within %ld ms\n", count, first, static_cast<long>(longest_ms));
  EXPECT_LE(longest_ms, from == nullptr ? 5000 : 1000);
}

}  // namespace
