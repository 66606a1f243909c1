// What the encoder and the camera's echo answer: bytes in, words out.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "supervisor/camera_ping.h"
#include "supervisor/encoder_response.h"

namespace {

// At the end of an allocation of its own.
response_step parse(const std::string& bytes, encoder_response* response) {
  const auto copy = std::make_unique<char[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.get());
  const response_step step = parse_encoder_response({copy.get(), bytes.size()}, response);
  response->body = {};
  return step;
}

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

TEST(encoder_response, has_limits) {
  const std::string good = "HTTP/1.1 200 OK\r\n";
  const std::string most = good + "Content-Length: 65536\r\n\r\n";
  const std::pair<std::string, response_step> rows[] = {
      {good + "\r\n", response_step::complete},  // no length, no body
      {most + std::string(65535, 'x'), response_step::needs_more},
      {most + std::string(65536, 'x'), response_step::complete},
      {good + "Content-Length: 65537\r\n\r\n", response_step::malformed},
      {good + "Content-Length: -1\r\n\r\n", response_step::malformed},
      {good + "Content-Length: 5x\r\n\r\n", response_step::malformed},
      {"HTTP/1.0 200 OK\r\n\r\n", response_step::malformed},
      {"HTTP/1.1 20\r\n\r\n", response_step::malformed},
      {"HTTP/1.1 2x0 OK\r\n\r\n", response_step::malformed},
      {"x", response_step::malformed},
      {good + std::string(4096 - good.size() - 1, 'h'), response_step::needs_more},
      {good + std::string(4096 - good.size(), 'h'), response_step::malformed},
  };
  for (const auto& [bytes, step] : rows) {
    encoder_response response;
    EXPECT_EQ(parse(bytes, &response), step) << bytes.substr(0, 80);
  }
}

std::string shown(const camera_temperature& one) { return one.valid ? std::to_string(int(one.value)) : "-"; }

TEST(encoder_statistics, tells_temperatures) {
  const std::pair<std::string, std::string> rows[] = {
      // lens, FPGA, CPU
      {"  +CPU  51  +LENS -7", "-7 - 51"},
      {"+LENS 100.0 +FPGA 20 +CPU 20", "100 20 20"},
      {"+LENS 101 +FPGA 45 +CPU 51", "- - - invalid"},
      {"T T +LENS 1 +FPGA 2 +CPU 3", "1 2 -"},  // seven words count
      {"+LENS nan +FPGA inf +CPU", "- - -"},
  };
  for (const auto& [text, expected] : rows) {
    const auto told = parse_encoder_statistics(R"({"temp_status_str":")" + text + "\"}");
    ASSERT_TRUE(told);
    const camera_temperatures& t = told->temperatures;
    const std::string all = shown(t.lens) + " " + shown(t.fpga) + " " + shown(t.cpu);
    EXPECT_EQ(all + (told->invalid ? " invalid" : ""), expected) << text;
  }
}

TEST(encoder_statistics, tells_channels) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"encoder_status_str":" a1 b1  a2 b2 a3"})", "a1 a2 a3|b1 b2"},
      {R"({"encoder_status_str":"a1"})", "a1|No stream detected"},
      {R"({"encoder_status_str":5})", "No stream detected|No stream detected"},
      {"{\"encoder_status_str\":\"a\xFF b\"}", "a?|b"},
  };
  for (const auto& [json, expected] : rows) {
    const auto told = parse_encoder_statistics(json);
    ASSERT_TRUE(told) << json;
    EXPECT_EQ(told->channels[0] + "|" + told->channels[1], expected);
  }
  for (const char* json : {"", "[]", "{", "nothing"}) EXPECT_FALSE(parse_encoder_statistics(json)) << json;
}

using bytes = std::vector<uint8_t>;

// An IPv4 packet of ICMP with this head and payload.
bytes echo(uint8_t type, uint16_t identifier, uint16_t sequence, bytes payload = bytes(32, '0')) {
  const auto request = echo_request(identifier, sequence);
  payload.insert(payload.begin(), request.begin(), request.begin() + 8);
  payload[0] = type;
  payload[2] = payload[3] = 0;
  uint32_t sum = 0;
  for (size_t i = 0; i < payload.size(); ++i) sum += payload[i] * (i % 2 == 0 ? 256U : 1U);
  sum = (sum & 0xFFFF) + (sum >> 16);
  payload[2] = static_cast<uint8_t>(~sum >> 8);
  payload[3] = static_cast<uint8_t>(~sum);
  bytes packet{0x45, 0, 0, 60, 0, 0, 0, 0, 64, 1, 0, 0, 192, 168, 0, 127, 192, 168, 0, 1};
  for (const uint8_t byte : payload) packet.push_back(byte);
  return packet;
}

TEST(camera_ping, only_its_own_answer_counts) {
  const auto judge = [](const bytes& packet) { return judge_echo_packet(packet, 0x1234, 0xFFFE); };
  const bytes reply = echo(0, 0x1234, 0xFFFE);
  const bytes lost = echo(8, 0x1234, 0xFFFE);
  EXPECT_EQ(judge(reply), echo_answer::reply);
  EXPECT_EQ(judge(lost), echo_answer::none);  // our own request, seen on the way out
  EXPECT_EQ(judge(echo(0, 0x1234, 0xFFFD)), echo_answer::none);
  EXPECT_EQ(judge(echo(0, 0x1235, 0xFFFE)), echo_answer::none);
  EXPECT_EQ(judge(echo(3, 0, 0, {lost.begin(), lost.begin() + 28})), echo_answer::unreachable);
  EXPECT_EQ(judge(echo(3, 0, 0, echo(8, 0x1234, 7))), echo_answer::none);
  EXPECT_EQ(judge(echo(3, 0, 0, {lost.begin(), lost.begin() + 27})), echo_answer::none);
  for (const auto& [at, value] : {std::pair(0, 0x65), {0, 0x44}, {0, 0x4F}, {9, 17}, {59, 0}}) {
    bytes broken = reply;
    broken[static_cast<size_t>(at)] = static_cast<uint8_t>(value);
    EXPECT_EQ(judge(broken), echo_answer::none) << at;
  }
  for (size_t size = 0; size < 28; ++size)
    EXPECT_EQ(judge({reply.begin(), reply.begin() + static_cast<long>(size)}), echo_answer::none);
}

}  // namespace
