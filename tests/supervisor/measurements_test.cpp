// What the encoder and the camera's echo answer, and what the status record makes of its measurements.

#include "recorder/recorder.h"
#include "supervisor/camera_ping.h"
#include "supervisor/encoder_response.h"
#include "supervisor/status.h"
#include "tests/kit.h"

namespace {

// At the end of an allocation of its own.
response_step parse(const std::string& bytes, encoder_response* response) {
  const auto copy = std::make_unique<char[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.get());
  const response_step step = parse_encoder_response({copy.get(), bytes.size()}, response);
  response->body = {};
  return step;
}

// A part of an answer taken for all of it, or the next one's start for its end.
TEST(encoder_response, is_complete_with_its_last_byte) {
  const std::string bytes = "HTTP/1.1 404 Not Found\r\nServer: x\r\ncontent-length: \t5\r\n\r\nabcde";
  encoder_response response;
  for (size_t size = 0; size < bytes.size(); ++size)
    EXPECT_EQ(parse(bytes.substr(0, size), &response), response_step::needs_more) << size;
  const std::string more = bytes + "HTTP";
  EXPECT_EQ(parse_encoder_response(more, &response), response_step::complete);
  EXPECT_EQ(response.status, 404);
  EXPECT_EQ(response.body, "abcde");
  EXPECT_EQ(response.length, bytes.size());
}

// An encoder that talks without an end would fill the memory.
TEST(encoder_response, has_limits) {
  const std::string good = "HTTP/1.1 200 OK\r\n", most = good + "Content-Length: 65536\r\n\r\n";
  const std::pair<std::string, response_step> rows[] = {
      {good + "\r\n", response_step::complete},  // no length, no body
      {most + std::string(65535, 'x'), response_step::needs_more},
      {most + std::string(65536, 'x'), response_step::complete},
      {good + "Content-Length: 65537\r\n\r\n", response_step::malformed},
      {good + "Content-Length: 5x\r\n\r\n", response_step::malformed},
      {"HTTP/1.0 200 OK\r\n\r\n", response_step::malformed},
      {"HTTP/1.1 2x0 OK\r\n\r\n", response_step::malformed},
      {good + std::string(4096 - good.size() - 1, 'h'), response_step::needs_more},
      {good + std::string(4096 - good.size(), 'h'), response_step::malformed}};
  for (const auto& [bytes, step] : rows) {
    encoder_response response;
    EXPECT_EQ(parse(bytes, &response), step) << bytes.substr(0, 80);
  }
}

std::string shown(const camera_temperature& one) { return one.valid ? std::to_string(int(one.value)) : "-"; }

// A reading that is none would warn, or end the unit.
TEST(encoder_statistics, tells_temperatures) {
  const char* const kTexts =
      "  +CPU  51  +LENS -7>-7 - 51|+LENS 101 +FPGA 45 +CPU 51>- - - invalid|"
      "T T +LENS 1 +FPGA 2 +CPU 3>1 2 -|"  // seven words count
      "+LENS nan +FPGA inf +CPU -1e29>- - -";
  for (const auto& [text, expected] : rows_of(kTexts)) {
    const auto told = parse_encoder_statistics(R"({"temp_status_str":")" + text + "\"}");
    ASSERT_TRUE(told);
    const camera_temperatures& t = told->temperatures;
    const std::string all = shown(t.lens) + " " + shown(t.fpga) + " " + shown(t.cpu);
    EXPECT_EQ(all + (told->invalid ? " invalid" : ""), expected) << text;
  }
}

// What cannot be read must not be shown as a stream, nor break the page.
TEST(encoder_statistics, tells_channels) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"encoder_status_str":" a1 b1  a2 b2 a3"})", "a1 a2 a3|b1 b2"},
      {R"({"encoder_status_str":"a1"})", "a1|No stream detected"},
      {"{\"encoder_status_str\":\"a\xFF b\"}", "a?|b"}};
  for (const auto& [json, expected] : rows) {
    const auto told = parse_encoder_statistics(json);
    ASSERT_TRUE(told) << json;
    EXPECT_EQ(told->channels[0] + "|" + told->channels[1], expected);
  }
  for (const char* json : {"", "[]", "{"}) EXPECT_FALSE(parse_encoder_statistics(json)) << json;
}

using bytes = std::vector<uint8_t>;

bytes ip_packet(const bytes& icmp) {
  bytes packet{0x45, 0, 0, 60, 0, 0, 0, 0, 64, 1, 0, 0, 192, 168, 0, 127, 192, 168, 0, 1};
  for (const uint8_t byte : icmp) packet.push_back(byte);
  return packet;
}

// Somebody else's ping, or our own on its way out, taken for a camera that answers.
TEST(camera_ping, only_its_own_answer_counts) {
  const auto judge = [](const bytes& packet) { return judge_echo_packet(packet, 0x1234, 0xFFFE); };
  const auto request = echo_request(0x1234, 0xFFFE);
  bytes icmp(request.begin(), request.end());
  const bytes sent = ip_packet(icmp);
  icmp[0] = 0, icmp[2] += 8;  // with its checksum
  const bytes reply = ip_packet(icmp);
  EXPECT_EQ(judge(reply), echo_answer::reply);
  EXPECT_EQ(judge(sent), echo_answer::none);  // seen on the way out
  EXPECT_EQ(judge_echo_packet(reply, 0x1235, 0xFFFE), echo_answer::none);
  EXPECT_EQ(judge_echo_packet(reply, 0x1234, 0xFFFD), echo_answer::none);
  // Destination unreachable, with the start of what could not be delivered.
  icmp = {3, 0, 0xE9, 0xF4, 0, 0, 0, 0};
  icmp.insert(icmp.end(), sent.begin(), sent.begin() + 28);
  const bytes unreachable = ip_packet(icmp);
  EXPECT_EQ(judge(unreachable), echo_answer::unreachable);
  EXPECT_EQ(judge_echo_packet(unreachable, 0x1234, 7), echo_answer::none);
  icmp.pop_back();  // its checksum fits
  icmp[2] = 0xEA, icmp[3] = 0xF2;
  EXPECT_EQ(judge(ip_packet(icmp)), echo_answer::none);
  for (const auto& [at, value] : {std::pair(0, 0x65), {0, 0x44}, {0, 0x4F}, {9, 17}, {12, 193}, {59, 0}}) {
    bytes broken = reply;
    broken[static_cast<size_t>(at)] = static_cast<uint8_t>(value);
    EXPECT_EQ(judge(broken), echo_answer::none) << at;
  }
  for (size_t size = 0; size < 28; ++size)
    EXPECT_EQ(judge({reply.begin(), reply.begin() + static_cast<long>(size)}), echo_answer::none);
}

constexpr double kNone = NAN;

std::string warnings(double board, double processor, double lens = kNone, double fpga = kNone,
                     double cpu = kNone) {
  const auto one = [](double value) { return camera_temperature{value, !std::isnan(value)}; };
  const temperature_warnings w = judge_temperatures(board, processor, {one(lens), one(fpga), one(cpu)});
  std::string text;
  const bool on[] = {w.cold, w.freezing, w.warm, w.hot, w.shutdown, w.camera_overheated};
  for (size_t i = 0; i < std::size(on); ++i)
    if (on[i]) text += "cfwhso"[i];
  return text;
}

// A limit that is off by its own value, or a sensor that is left out.
TEST(status, temperatures_warn_above_and_below_their_limits) {
  const std::tuple<double, const char*, const char*> kRows[] = {
      {-5.1, "cf", "cf"}, {-5.0, "f", "f"},   {0.0, "", ""},       {80.0, "", ""},
      {88.0, "w", "w"},   {89.0, "wh", "wh"}, {89.1, "whs", "who"}};
  for (const auto& [value, of_unit, of_camera] : kRows) {
    SCOPED_TRACE(value);
    EXPECT_EQ(warnings(value, 40), of_unit);
    EXPECT_EQ(warnings(40, value), of_unit);
    EXPECT_EQ(warnings(40, 40, value), of_camera);
    EXPECT_EQ(warnings(40, 40, 30, value, 30), of_camera);
    EXPECT_EQ(warnings(40, 40, 30, kNone, value), of_camera);
  }
  EXPECT_EQ(warnings(kNone, kNone), "");
}

// A tilt to the wrong side, or "-0" in the picture.
TEST(status, tilt_is_the_angle_of_two_axes) {
  EXPECT_FALSE(std::signbit(tilt_angle(1, -0.001)));
  EXPECT_EQ(tilt_angle(0.866, -0.5), -30);
  EXPECT_EQ(tilt_angle(0, -1), -90);
}

std::string times(const free_stores& free, const take_rate& rate, int post_processing = 0) {
  supervisor_values values;
  values.post_processing = post_processing;
  tell_remaining_times(free, rate, &values);
  return std::string(values.recording_time) + " " + values.storage_time + " " + values.time_remaining;
}

// A take that ends for want of space, with minutes still shown.
TEST(status, remaining_times_follow_the_take_or_the_assumed_rate) {
  take_rate rate;
  EXPECT_EQ(times({3'610'000 + 999, 7'230'000 + 59'999}, rate), "01:00:00 02:00:59 60 MIN");
  EXPECT_EQ(times({UINT64_MAX, UINT64_MAX}, rate, 42), "999:59:59 999:59:59 42 %");
  step_take_rate(&rate, true, false, 0);  // the file is not there yet
  step_take_rate(&rate, true, false, 500);
  for (uint64_t second = 1; second <= 10; ++second) step_take_rate(&rate, true, false, 500 + 200 * second);
  EXPECT_EQ(times({110'000, 2'030'000}, rate), "00:08:20 02:46:40 8 MIN");
  for (int second = 0; second < 50; ++second) step_take_rate(&rate, true, true, 2500);  // paused
  EXPECT_EQ(times({110'000, 2'030'000}, rate), "00:08:20 02:46:40 8 MIN");
  step_take_rate(&rate, false, false, 0);
  EXPECT_EQ(times({110'000, 2'030'000}, rate), "00:01:40 00:33:20 1 MIN");
}

}  // namespace
