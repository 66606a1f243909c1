// The HTTP/1.x request parser: a byte-at-a-time state machine that can stop at any byte and go on with the
// next chunk. It owns no descriptor, reads no clock and allocates nothing but a large body.
#pragma once

#include <json-c/json.h>

#include <array>
#include <cstddef>

inline constexpr size_t kHttpStorageSize = 8192;
inline constexpr long kHttpContentLimit = 16L << 20;  // a longer announced body makes the request malformed

enum http_parser_state : int {
  kHttpMalformed = -1,
  kHttpMethodStart = 0,
  kHttpMethod = 1,
  kHttpPathStart = 2,
  kHttpPath = 3,
  kHttpProtocolH = 4,  // 4 to 8: the letters "HTTP/"
  kHttpProtocolSlash = 8,
  kHttpMajorStart = 9,
  kHttpMajor = 10,
  kHttpMinorStart = 11,
  kHttpMinor = 12,
  kHttpLineFeed = 13,
  kHttpHeaderStart = 14,
  kHttpHeaderName = 15,
  kHttpHeaderColon = 16,
  kHttpHeaderBlank = 17,
  kHttpHeaderValue = 18,
  kHttpLastLineFeed = 19,
  kHttpContent = 20,
  kHttpComplete = 21,
};

// The texts are in `storage`, each ended by a zero byte, and null until they have arrived.
struct http_request {
  size_t write_position = 0;
  int state = kHttpMethodStart;
  const char* header_name = nullptr;  // of the header line being read
  const char* header_value = nullptr;
  const char* method = nullptr;
  const char* path = nullptr;  // the whole request target, query string included
  int major_version = 0;
  int minor_version = 0;
  const char* host = nullptr;
  const char* connection = nullptr;
  const char* user_agent = nullptr;
  const char* accept = nullptr;
  const char* accept_language = nullptr;
  const char* accept_encoding = nullptr;
  const char* referer = nullptr;
  const char* content_type = nullptr;
  const char* x_requested_with = nullptr;
  long content_length = 0;
  long content_received = 0;
  char* content = nullptr;  // in `storage`, or on the heap when content_allocated
  bool content_allocated = false;
  json_tokener* tokener = nullptr;  // of the handler that reads a JSON body (http/json_body.h)
  long tokener_fed = 0;             // bytes given to it
  std::array<char, kHttpStorageSize> storage;
};

// Clears the request for the next connection. It must own nothing (http_request_context_free).
void http_request_reset(http_request* request);

// Frees a body on the heap, and a tokener.
void http_request_context_free(http_request* request);

// Feeds `count` bytes. Returns 0 when the request, header and body, is complete, 1 when more bytes are
// needed, -1 when it is malformed (and for every call after that). Bytes after the end of a complete request
// are not consumed. `consumed`, when given, gets the number of bytes taken.
int http_request_parse_http_header(http_request* request, const char* bytes, size_t count, size_t* consumed);
