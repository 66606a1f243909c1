// Feeds a request to the parser in chunks and at once: both must come to the same result. The first byte of
// the input sets the lengths of the chunks.
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

#include "http/request.h"

namespace {

void require(bool holds) {
  if (!holds) abort();
}

struct parsed {
  std::unique_ptr<http_request> request = std::make_unique<http_request>();
  size_t consumed = 0;
  int result = 1;

  ~parsed() { http_request_context_free(request.get()); }

  // The chunk ends where its allocation ends.
  void feed(std::string_view bytes) {
    const std::vector<char> chunk(bytes.begin(), bytes.end());
    size_t taken = 0;
    result = http_request_parse_http_header(request.get(), chunk.data(), chunk.size(), &taken);
    require(taken <= chunk.size());
    require(result != 1 || taken == chunk.size());
    consumed += taken;
  }
};

bool same(const char* one, const char* other) {
  if (one == nullptr || other == nullptr) return one == other;
  return std::string_view(one) == other;
}

void check(const http_request& request) {
  require(request.write_position <= kHttpStorageSize);
  require(request.content_length <= kHttpContentLimit);
  if (request.state < kHttpContent) return;
  require(request.content_length >= 0 && request.content_received <= request.content_length);
  if (request.content == nullptr || request.content_allocated) return;
  require(request.content >= request.storage.data() + request.write_position);
  require(request.content + request.content_length <= request.storage.data() + kHttpStorageSize);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
  unsigned lengths = data[0];
  parsed whole, chunked;
  whole.feed(input);
  for (size_t at = 0; at < input.size();) {
    const std::string_view chunk = input.substr(at, 1 + lengths % 61);
    lengths = lengths * 5 + 3;
    chunked.feed(chunk);
    at += chunk.size();
    check(*chunked.request);
  }
  check(*whole.request);
  const http_request& one = *whole.request;
  const http_request& other = *chunked.request;
  require(whole.result == chunked.result && whole.consumed == chunked.consumed);
  require(one.state == other.state && one.content_length == other.content_length);
  if (whole.result != 0) return 0;
  require(one.major_version == other.major_version && one.minor_version == other.minor_version);
  require(same(one.method, other.method) && same(one.path, other.path));
  require(same(one.host, other.host) && same(one.content_type, other.content_type));
  const auto length = static_cast<size_t>(one.content_length);
  if (length != 0) {
    require(std::string_view(one.content, length) == std::string_view(other.content, length));
  }
  return 0;
}
