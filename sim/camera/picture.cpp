#include "sim/camera/picture.h"

#include <gst/gst.h>
#include <gst/rtsp-server/rtsp-server.h>

#include <algorithm>
#include <cstdio>
#include <thread>

#include "sim/camera/title_markup.h"

namespace sim_camera {
namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 360;
constexpr int kSmallestCrop = 16;    // pixels of the scene across; beyond 40x the picture no longer grows
constexpr unsigned kRefreshMs = 66;  // one frame
constexpr unsigned kBlinkMs = 500;
constexpr unsigned kSessionSweep_s = 10;
constexpr unsigned kSwitchMs = 20;

// The scene is checkers that drift, with a fixed target and a fixed scale in front: the frame of reference.
constexpr char kPipeline[] =
    "( videotestsrc is-live=true pattern=checkers-8 horizontal-speed=1"
    " ! video/x-raw,format=I420,width=640,height=360,framerate=15/1"
    " ! textoverlay text=+ font-desc=\"Monospace 40px\" valignment=center halignment=center deltay=13"
    " auto-resize=false draw-shadow=false"
    " ! textoverlay text=8.7.6.5.4.3.2.1.0.1.2.3.4.5.6.7.8 font-desc=\"Monospace 18px\" valignment=center"
    " halignment=center deltay=40 auto-resize=false draw-shadow=false"
    " ! videocrop name=crop ! videoscale ! video/x-raw,width=640,height=360 ! videoflip name=flip"
    " ! videobalance name=balance"
    " ! textoverlay name=titles font-desc=\"Monospace Bold 26px\" valignment=top halignment=left"
    " line-alignment=left xpad=48 ypad=6 wrap-mode=none auto-resize=false draw-shadow=false"
    " ! x264enc tune=zerolatency speed-preset=ultrafast key-int-max=15 threads=1 bitrate=1500"
    " ! valve name=valve ! rtph264pay name=pay0 pt=96 )";

// Where the picture is served. The recorder asks for the first one.
constexpr const char* kMounts[] = {"/vx-1.mp4", "/stream0", "/stream1"};

// One running picture: the elements that follow the camera. GStreamer builds the elements anew for each first
// viewer.
struct running_picture {
  shared_picture* shared = nullptr;
  GstElement* crop = nullptr;
  GstElement* flip = nullptr;
  GstElement* balance = nullptr;
  GstElement* titles = nullptr;
  GstElement* valve = nullptr;
  picture_state shown;
  bool fresh = true;  // nothing applied yet
  bool blink_dark = false;
};

// The server, and how often its connections have been closed.
struct served_picture {
  GstRTSPServer* server = nullptr;
  shared_picture* shared = nullptr;
  int drops = 0;
};

void apply_zoom(const running_picture& p, double magnification) {
  const double width = std::max<double>(kWidth / magnification, kSmallestCrop);
  // I420 crops to even pixels.
  const int side = static_cast<int>((kWidth - width) / 4) * 2;
  const int top = static_cast<int>((kHeight - width * kHeight / kWidth) / 4) * 2;
  g_object_set(p.crop, "left", side, "right", side, "top", top, "bottom", top, nullptr);
}

void apply_light(const running_picture& p, const picture_state& state) {
  const double brightness = state.power ? -0.6 + 0.008 * state.light_percent : -1.0;
  const double contrast = state.power ? 1.0 : 0.0;
  const double saturation = state.infrared ? 0.0 : 1.0;
  g_object_set(p.balance, "brightness", brightness, "contrast", contrast, "saturation", saturation, nullptr);
}

void apply(running_picture& p, const picture_state& state, bool blink_dark) {
  const bool all = p.fresh || state.power != p.shown.power;
  if (all || state.magnification != p.shown.magnification) apply_zoom(p, state.magnification);
  if (all || state.light_percent != p.shown.light_percent || state.infrared != p.shown.infrared) {
    apply_light(p, state);
  }
  if (all || state.upside_down != p.shown.upside_down) {
    gst_util_set_object_arg(G_OBJECT(p.flip), "method", state.upside_down ? "rotate-180" : "none");
  }
  if (all || state.titles != p.shown.titles || blink_dark != p.blink_dark) {
    const std::string markup = state.power ? title_markup(state.titles, blink_dark) : std::string();
    g_object_set(p.titles, "text", markup.c_str(), nullptr);
  }
  if (all || state.silent != p.shown.silent) g_object_set(p.valve, "drop", state.silent, nullptr);
  p.shown = state;
  p.blink_dark = blink_dark;
  p.fresh = false;
}

gboolean refresh(gpointer data) {
  auto& p = *static_cast<running_picture*>(data);
  apply(p, p.shared->latest(), g_get_monotonic_time() / 1000 / kBlinkMs % 2 != 0);
  return G_SOURCE_CONTINUE;
}

void forget_picture(gpointer data) {
  auto* p = static_cast<running_picture*>(data);
  for (GstElement* element : {p->crop, p->flip, p->balance, p->titles, p->valve}) gst_clear_object(&element);
  delete p;
}

void on_unprepared(GstRTSPMedia*, gpointer source) {
  g_source_destroy(
      static_cast<GSource*>(source));  // a refresh under way ends first, then the picture is freed
}

void unref_source(gpointer source, GClosure*) { g_source_unref(static_cast<GSource*>(source)); }

void on_media_configure(GstRTSPMediaFactory*, GstRTSPMedia* media, gpointer shared) {
  GstElement* bin = gst_rtsp_media_get_element(media);
  auto* p = new running_picture;
  p->shared = static_cast<shared_picture*>(shared);
  p->crop = gst_bin_get_by_name(GST_BIN(bin), "crop");
  p->flip = gst_bin_get_by_name(GST_BIN(bin), "flip");
  p->balance = gst_bin_get_by_name(GST_BIN(bin), "balance");
  p->titles = gst_bin_get_by_name(GST_BIN(bin), "titles");
  p->valve = gst_bin_get_by_name(GST_BIN(bin), "valve");
  gst_object_unref(bin);
  if (p->crop == nullptr || p->flip == nullptr || p->balance == nullptr || p->titles == nullptr ||
      p->valve == nullptr) {
    std::fprintf(stderr, "sim_camera: a GStreamer element is missing, the picture cannot be made\n");
    forget_picture(p);
    return;
  }
  refresh(p);
  GSource* source = g_timeout_source_new(kRefreshMs);
  g_source_set_callback(source, refresh, p, forget_picture);
  g_source_attach(source, nullptr);
  g_signal_connect_data(media, "unprepared", G_CALLBACK(on_unprepared), source, unref_source,
                        GConnectFlags{});
}

// Viewers that vanished without a goodbye leave their session behind.
gboolean sweep_sessions(gpointer server) {
  GstRTSPSessionPool* pool = gst_rtsp_server_get_session_pool(static_cast<GstRTSPServer*>(server));
  gst_rtsp_session_pool_cleanup(pool);
  g_object_unref(pool);
  return G_SOURCE_CONTINUE;
}

GstRTSPFilterResult end_client(GstRTSPServer*, GstRTSPClient*, gpointer) { return GST_RTSP_FILTER_REMOVE; }

// Closes the connections when that was asked for.
gboolean watch_drops(gpointer data) {
  auto& s = *static_cast<served_picture*>(data);
  const int drops = s.shared->latest().drops;
  if (drops != s.drops) gst_rtsp_server_client_filter(s.server, end_client, nullptr);
  s.drops = drops;
  return G_SOURCE_CONTINUE;
}

void add_mounts(GstRTSPServer* server, shared_picture& shared) {
  GstRTSPMountPoints* mounts = gst_rtsp_server_get_mount_points(server);
  for (const char* path : kMounts) {
    GstRTSPMediaFactory* factory = gst_rtsp_media_factory_new();
    gst_rtsp_media_factory_set_launch(factory, kPipeline);
    gst_rtsp_media_factory_set_shared(factory, TRUE);
    g_signal_connect(factory, "media-configure", G_CALLBACK(on_media_configure), &shared);
    gst_rtsp_mount_points_add_factory(mounts, path, factory);
  }
  g_object_unref(mounts);
}

}  // namespace

bool picture_start(const std::string& address, int port, shared_picture& shared) {
  gst_init(nullptr, nullptr);
  GstRTSPServer* server = gst_rtsp_server_new();
  gst_rtsp_server_set_address(server, address.c_str());
  gst_rtsp_server_set_service(server, std::to_string(port).c_str());
  add_mounts(server, shared);
  if (gst_rtsp_server_attach(server, nullptr) == 0) {
    std::fprintf(stderr, "sim_camera: no RTSP on %s:%d\n", address.c_str(), port);
    return false;
  }
  g_timeout_add_seconds(kSessionSweep_s, sweep_sessions, server);
  g_timeout_add(kSwitchMs, watch_drops, new served_picture{server, &shared, 0});
  std::thread([] { g_main_loop_run(g_main_loop_new(nullptr, FALSE)); }).detach();
  return true;
}

}  // namespace sim_camera
