#include "http/request.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

#include "base/trace.h"

namespace {

constexpr int kVersionLimit = 9999;

struct known_header {
  const char* name;
  const char* http_request::*value;
};

constexpr known_header kKnownHeaders[] = {
    {"Host", &http_request::host},
    {"Connection", &http_request::connection},
    {"User-Agent", &http_request::user_agent},
    {"Accept", &http_request::accept},
    {"Accept-Language", &http_request::accept_language},
    {"Accept-Encoding", &http_request::accept_encoding},
    {"Referer", &http_request::referer},
    {"Content-Type", &http_request::content_type},
    {"X-Requested-With", &http_request::x_requested_with},
};

// What each byte may be part of. A token (methods, header names) has no separators: RFC 2616, 2.2.
constexpr uint8_t kToken = 1;
constexpr uint8_t kPath = 2;
constexpr uint8_t kValue = 4;  // any text; a bare line feed must not hide a second header line
constexpr uint8_t kDigit = 8;

constexpr std::array<uint8_t, 256> make_byte_classes() {
  std::array<uint8_t, 256> classes{};
  for (size_t byte = 0x20; byte < classes.size(); ++byte) classes[byte] = kValue;
  for (size_t byte = 0x21; byte < 0x7F; ++byte) classes[byte] |= kToken | kPath;
  for (size_t byte = '0'; byte <= '9'; ++byte) classes[byte] |= kDigit;
  for (const char separator : std::string_view("\"(),/:;<=>?@[\\]{}")) {
    classes[static_cast<unsigned char>(separator)] &= static_cast<uint8_t>(~kToken);
  }
  classes['\t'] = kValue;
  classes[0x7F] = 0;
  return classes;
}

constexpr std::array<uint8_t, 256> kByteClasses = make_byte_classes();

bool is(char byte, uint8_t byte_class) {
  return (kByteClasses[static_cast<unsigned char>(byte)] & byte_class) != 0;
}

// Appends one byte to the text being stored.
bool store(http_request* request, char byte) {
  if (request->write_position >= kHttpStorageSize) return false;
  request->storage[request->write_position++] = byte;
  return true;
}

// Starts a text with its first byte.
bool start_text(http_request* request, const char** text, char byte) {
  *text = request->storage.data() + request->write_position;
  return store(request, byte);
}

bool add_digit(int* number, char byte) {
  if (!is(byte, kDigit)) return false;
  *number = *number * 10 + (byte - '0');
  return *number <= kVersionLimit;
}

bool record_header(http_request* request) {
  if (!store(request, '\0')) return false;
  if (strcmp(request->header_name, "Content-Length") == 0) {
    request->content_length = strtol(request->header_value, nullptr, 10);
    return request->content_length >= 0 && request->content_length <= kHttpContentLimit;
  }
  for (const known_header& known : kKnownHeaders) {
    if (*request->header_name == *known.name && strcmp(request->header_name, known.name) == 0)
      request->*known.value = request->header_value;
  }
  return true;
}

// At the empty line's line feed, byte `position` of this chunk. A body that fits stays in the request's own
// storage, behind the header bytes; the offset saves an allocation for the common small body.
bool set_up_content(http_request* request, size_t position) {
  if (request->content_length == 0) {
    request->state = kHttpComplete;
    return true;
  }
  // The header may have come in several chunks: the body must not run over what is stored of it.
  const size_t offset = std::max(position, request->write_position);
  const auto length = static_cast<size_t>(request->content_length);
  if (offset >= kHttpStorageSize || length >= kHttpStorageSize - offset) {
    request->content = static_cast<char*>(calloc(1, length));
    if (request->content == nullptr) return false;
    request->content_allocated = true;
    trace(kTraceHttpServer, "content allocated %ld", request->content_length);
  } else {
    request->content = request->storage.data() + offset;
  }
  request->state = kHttpContent;
  return true;
}

// The method or the path, up to the blank behind it.
bool parse_word(http_request* request, char byte, uint8_t byte_class, const char* http_request::*word) {
  const bool is_start = request->*word == nullptr;
  if (is_start || byte == ' ') ++request->state;
  if (byte == ' ' && !is_start) return store(request, '\0');
  if (!is(byte, byte_class)) return false;
  return is_start ? start_text(request, &(request->*word), byte) : store(request, byte);
}

// A number of the version, up to the byte that ends it.
bool parse_number(http_request* request, char byte, char end, int* number) {
  const bool is_start = request->state == kHttpMajorStart || request->state == kHttpMinorStart;
  if (is_start || byte == end) ++request->state;
  return (byte == end && !is_start) || add_digit(number, byte);
}

bool parse_header(http_request* request, char byte) {
  switch (request->state) {
    case kHttpHeaderStart:
      if (byte == '\r') {
        request->state = kHttpLastLineFeed;
        return true;
      }
      request->state = kHttpHeaderName;
      return is(byte, kToken) && start_text(request, &request->header_name, byte);
    case kHttpHeaderName:
      if (byte == ':') {
        request->state = kHttpHeaderColon;
        return store(request, '\0');
      }
      return is(byte, kToken) && store(request, byte);
    case kHttpHeaderColon:
    case kHttpHeaderBlank:
      if (byte == ' ' || byte == '\t') {
        request->state = kHttpHeaderBlank;
        return true;
      }
      request->header_value = request->storage.data() + request->write_position;
      request->state = kHttpHeaderValue;
      [[fallthrough]];
    default:  // kHttpHeaderValue
      if (byte == '\r') {
        request->state = kHttpLineFeed;
        return record_header(request);
      }
      return is(byte, kValue) && store(request, byte);
  }
}

bool parse_byte(http_request* request, char byte, size_t position) {
  switch (request->state) {
    case kHttpMethodStart:
    case kHttpMethod:
      return parse_word(request, byte, kToken, &http_request::method);
    case kHttpPathStart:
    case kHttpPath:
      return parse_word(request, byte, kPath, &http_request::path);
    case kHttpMajorStart:
    case kHttpMajor:
      return parse_number(request, byte, '.', &request->major_version);
    case kHttpMinorStart:
    case kHttpMinor:
      return parse_number(request, byte, '\r', &request->minor_version);
    case kHttpLineFeed:
      request->state = kHttpHeaderStart;
      return byte == '\n';
    case kHttpLastLineFeed:
      return byte == '\n' && set_up_content(request, position);
    default:
      if (request->state >= kHttpHeaderStart) return parse_header(request, byte);
      // kHttpProtocolH to kHttpProtocolSlash
      return byte == "HTTP/"[request->state++ - kHttpProtocolH];
  }
}

// Takes the bytes that only go on with a text, which are nearly all, in one go; returns how many.
size_t take_text(http_request* request, const char* bytes, size_t count) {
  const int state = request->state;
  uint8_t byte_class = 0;
  if (state == kHttpMethod || state == kHttpHeaderName) byte_class = kToken;
  if (state == kHttpPath) byte_class = kPath;
  if (state == kHttpHeaderValue) byte_class = kValue;
  const size_t room = std::min(count, kHttpStorageSize - request->write_position);
  char* to = request->storage.data() + request->write_position;
  size_t taken = 0;
  for (; taken < room && is(bytes[taken], byte_class); ++taken) to[taken] = bytes[taken];
  request->write_position += taken;
  return taken;
}

// Takes body bytes in one copy; returns how many.
size_t take_content(http_request* request, const char* bytes, size_t count) {
  const auto missing = static_cast<size_t>(request->content_length - request->content_received);
  const size_t taken = std::min(missing, count);
  memcpy(request->content + request->content_received, bytes, taken);
  request->content_received += static_cast<long>(taken);
  if (taken == missing) request->state = kHttpComplete;
  return taken;
}

}  // namespace

void http_request_reset(http_request* request) {
  // The storage is left as it is: only what has been written to it is ever read.
  std::destroy_at(request);
  new (request) http_request;
}

void http_request_context_free(http_request* request) {
  if (request->content_allocated) {
    trace(kTraceHttpServer, "content free");
    free(request->content);
    request->content = nullptr;
    request->content_allocated = false;
  }
  if (request->tokener != nullptr) {
    json_tokener_free(request->tokener);
    request->tokener = nullptr;
  }
}

int http_request_parse_http_header(http_request* request, const char* bytes, size_t count, size_t* consumed) {
  size_t at = 0;
  while (at < count && request->state != kHttpMalformed && request->state != kHttpComplete) {
    at += take_text(request, bytes + at, count - at);
    if (at == count) break;
    if (request->state == kHttpContent) {
      at += take_content(request, bytes + at, count - at);
    } else if (parse_byte(request, bytes[at], at)) {
      ++at;
    } else {
      request->state = kHttpMalformed;
    }
  }
  if (consumed != nullptr) *consumed = at;
  if (request->state == kHttpMalformed) return -1;
  return request->state == kHttpComplete ? 0 : 1;
}
