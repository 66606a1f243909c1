#include "http/response.h"

#include <cstdio>

#include "http/server.h"

namespace {

constexpr size_t kHeaderSize = 8192;

// `format` takes the two version numbers and, where it has a place for it, the body's length.
void send_body(http_connection* connection, const char* format, const char* body, size_t length) {
  char header[kHeaderSize];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int header_length = snprintf(header, sizeof header, format, connection->request.major_version,
                                     connection->request.minor_version, static_cast<long>(length));
#pragma GCC diagnostic pop
  http_connection_send(connection, header, static_cast<size_t>(header_length), body, length);
}

void send_form(http_connection* connection, const char* format, json_owner object) {
  if (!object) return;
  size_t length = 0;
  const char* body = json_object_to_json_string_length(object.get(), JSON_C_TO_STRING_NOSLASHESCAPE, &length);
  if (body != nullptr) send_body(connection, format, body, length);
}

constexpr char kJsonForm[] =
    "HTTP/%d.%d 200 OK\r\nContent-Length: %ld\r\nContent-Type: application/json\r\n\r\n";
constexpr char kJpegForm[] = "HTTP/%d.%d 200 OK\r\nContent-Length: %ld\r\nContent-Type: image/jpeg\r\n\r\n";
constexpr char kCloseForm[] =
    "HTTP/%d.%d 200 OK\r\nContent-Length: %ld\r\nContent-Type: application/json\r\nConnection: close\r\n\r\n";
constexpr char kNoContentForm[] = "HTTP/%d.%d 204 No Content\r\n\r\n";

}  // namespace

void jpeg_response_handler(http_connection* connection, std::string_view picture) {
  send_body(connection, kJpegForm, picture.data(), picture.size());
}

void response_handler(http_connection* connection) { send_body(connection, kCloseForm, nullptr, 0); }

void json_v1_response_handler(http_connection* connection, json_object* object) {
  send_form(connection, kCloseForm, json_owner(object));
}

void empty_v1_response_handler(http_connection* connection) { send_body(connection, kCloseForm, "{}", 2); }

void no_content_response_handler(http_connection* connection) {
  send_body(connection, kNoContentForm, nullptr, 0);
}

int send_status(http_connection* connection, bool good) {
  return send_object(connection, [good](json_object* answer) { add_status(answer, good); });
}

int send_job_status(http_connection* connection, int result) {
  if (result != 1) return send_status(connection, result == 0);
  return send_text(connection, "status", "BUSY");
}

void add_status(json_object* answer, bool good) { add_text(answer, "status", good ? "OK" : "BAD_REQUEST"); }

int send_text(http_connection* connection, const char* key, const std::string& text) {
  return send_object(connection, [&](json_object* answer) { add_text(answer, key, text); });
}

int send_number(http_connection* connection, const char* key, int64_t number) {
  return send_object(connection, [&](json_object* answer) { add_number(answer, key, number); });
}

int send_flag(http_connection* connection, const char* key, bool is_on) {
  return send_object(connection, [&](json_object* answer) { add_flag(answer, key, is_on); });
}

int send_json(http_connection* connection, json_owner value) {
  send_form(connection, kJsonForm, std::move(value));
  return 0;
}
