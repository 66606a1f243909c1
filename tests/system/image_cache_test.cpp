// The image that a client leaves for the others.

#include <gtest/gtest.h>

#include "system/unit.h"

namespace {

constexpr char kBad[] = R"({"status":"BAD_REQUEST"})";
constexpr char kImage[] = "/api/camera/imagecache";

std::string post(const std::string& body = "") { return http("POST", kImage, body).body; }

TEST(image_cache, an_image_is_kept_whole_up_to_its_limit) {
  const child daemon = start_serving_daemon();
  EXPECT_EQ(http("GET", kImage).head.substr(0, 22), "HTTP/1.1 404 Not Found");
  std::string image(524'287, '\0');
  for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<char>(i * i >> 8);
  EXPECT_EQ(post(image), kOk);
  EXPECT_EQ(post(image + "x"), kBad);
  EXPECT_EQ(post(), kBad);
  const reply answer = http("GET", kImage);
  EXPECT_TRUE(answer.body == image);
  EXPECT_EQ(answer.head, "HTTP/1.1 200 OK\r\nContent-Length: 524287\r\nContent-Type: image/jpeg");
}

}  // namespace
