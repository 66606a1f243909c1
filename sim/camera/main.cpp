// sim_camera: the zoom camera of the bench. One loop serves the VISCA link and the control socket; the
// picture has GLib's loop on a thread of its own and follows through a snapshot.
#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "sim/camera/bench_camera.h"
#include "sim/camera/control_server.h"
#include "sim/camera/encoder_server.h"
#include "sim/camera/link_server.h"
#include "sim/camera/options.h"
#include "sim/camera/picture.h"

namespace sim_camera {
namespace {

constexpr int64_t kTickMs = 10;  // while something moves
constexpr int kIdleMs = -1;      // nothing happens by itself

int64_t milliseconds_since_start() {
  using clock = std::chrono::steady_clock;
  static const clock::time_point start = clock::now();
  return std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - start).count();
}

int wait_time_ms(const bench_camera& camera) {
  const int64_t next = line_next_ms(camera.block.replies);
  int64_t wait = kIdleMs;
  if (next >= 0) wait = std::max<int64_t>(next - milliseconds_since_start(), 0);
  if (block_active(camera.block)) wait = wait < 0 ? kTickMs : std::min(wait, kTickMs);
  return static_cast<int>(wait);
}

void publish_changes(shared_picture& shared, picture_state& published, const bench_camera& camera) {
  picture_state state = picture_of(camera);
  if (state == published) return;
  published = state;
  shared.publish(state);
}

[[noreturn]] void run(bench_camera& camera, link_server& link, control_server& control,
                      encoder_server& encoder, shared_picture& shared) {
  std::vector<pollfd> watched;
  picture_state published;
  for (;;) {
    watched.clear();
    link_watch(link, watched);
    control_watch(control, watched);
    encoder_watch(encoder, watched);
    poll(watched.data(), watched.size(), wait_time_ms(camera));
    camera.now_ms = milliseconds_since_start();
    for (const pollfd& ready : watched) {
      if (ready.revents == 0) continue;
      link_ready(link, camera, ready.fd);
      control_ready(control, camera, ready.fd);
      encoder_ready(encoder, camera.encoder, ready.fd);
    }
    link_settle(link, camera);
    publish_changes(shared, published, camera);
  }
}

}  // namespace
}  // namespace sim_camera

int main(int argc, char** argv) {
  using namespace sim_camera;
  options chosen;
  if (!options_read(argc, argv, chosen)) return 2;
  signal(SIGPIPE, SIG_IGN);
  static shared_picture shared;  // outlives main's locals: the picture thread never ends
  bench_camera camera;
  link_server link;
  control_server control;
  encoder_server encoder;
  if (!control_open(control, chosen.control_path)) return 1;
  if (!link_open(link, chosen.address.c_str(), chosen.visca_port)) return 1;
  if (!encoder_open(encoder, chosen.address.c_str(), chosen.http_port)) return 1;
  if (chosen.picture && !picture_start(chosen.address, chosen.rtsp_port, shared)) return 1;
  run(camera, link, control, encoder, shared);
}
