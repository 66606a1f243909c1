// Stored files through the daemon's API, with the bench's stick: takes, log files, and the cached image. What
// is refused is in the session "files".

#include <gtest/gtest.h>

#include <filesystem>

#include "base/paths.h"
#include "system/unit.h"

namespace {

namespace fs = std::filesystem;

constexpr char kBad[] = R"({"status":"BAD_REQUEST"})";
constexpr char kBusy[] = R"({"status":"BUSY"})";
constexpr char kImage[] = "/api/camera/imagecache";
constexpr char kFile[] = R"({"files":[{"parent_id":"id","name":"n_1.mp4"}]})";
const std::string kRecorder = "/api/camera/recorder/";
const std::string kLogger = "/api/logger/";

std::string post(const std::string& path, const std::string& body = "") {
  return http("POST", path, body).body;
}
std::string get(const std::string& path, const std::string& body = "") {
  return http("GET", path, body).body;
}

TEST(stored_files, are_copied_and_deleted_one_job_at_a_time) {
  fs::create_directories(paths::kUsbTakes);
  const std::string picture = paths::kUsbTakes + std::string("/n_1.mp4");
  write_text(picture, "");
  fs::resize_file(picture, 300 << 20);
  write_text(paths::kUsbTakes + std::string("/id.json"),
             R"({"id":"id","files":[{"path":"/ApiVideos","name":"n_1.mp4"}]})");
  const child daemon = start_serving_daemon();
  write_text("/dev/usb_ext1", "");
  ASSERT_TRUE(await([] { return post(kRecorder + "copy", kFile) == kOk; }));
  EXPECT_EQ(post(kRecorder + "copy", kFile), kBusy);
  EXPECT_TRUE(await([] { return get(kRecorder + "files").find("100.0 %") != std::string::npos; }));
  EXPECT_EQ(post(kRecorder + "delete", kFile), kOk);
  EXPECT_TRUE(await([] { return get(kRecorder + "files") == "[]"; }));

  EXPECT_EQ(post(kLogger + "log_file"), kOk);
  const std::string listed = get(kLogger + "files");
  const std::string name = "\"" + listed.substr(std::min(listed.size(), listed.find("log_")), 28) + "\"";
  EXPECT_EQ(get(kLogger + "log_file", R"({"file_name":)" + name + "}").substr(0, 60),
            get(kLogger + "readings").substr(0, 60));
  EXPECT_EQ(post(kLogger + "delete", R"({"files":[{"name":)" + name + "}]}"), kOk);
  EXPECT_TRUE(await([] { return get(kLogger + "files") == "[]"; }));
  EXPECT_EQ(post(kLogger + "reset"), kOk);
}

TEST(stored_files, an_image_is_kept_whole_up_to_its_limit) {
  const child daemon = start_serving_daemon();
  EXPECT_EQ(http("GET", kImage).head.substr(0, 22), "HTTP/1.1 404 Not Found");
  std::string image(524'287, '\0');
  for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<char>(i * i >> 8);
  EXPECT_EQ(post(kImage, image), kOk);
  EXPECT_EQ(post(kImage, image + "x"), kBad);
  EXPECT_EQ(post(kImage), kBad);
  const reply answer = http("GET", kImage);
  EXPECT_TRUE(answer.body == image);
  EXPECT_EQ(answer.head, "HTTP/1.1 200 OK\r\nContent-Length: 524287\r\nContent-Type: image/jpeg");
}

}  // namespace
