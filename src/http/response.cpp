#include "http/response.h"

#include <charconv>

#include "base/text.h"
#include "http/server.h"

namespace {

// What stands behind the version and, where the form has a length, behind that.
struct reply_form {
  std::string_view status;
  std::string_view headers;
};

constexpr std::string_view kOkStatus = " 200 OK\r\nContent-Length: ";
constexpr reply_form kJsonForm{kOkStatus, "\r\nContent-Type: application/json\r\n\r\n"};
constexpr reply_form kJpegForm{kOkStatus, "\r\nContent-Type: image/jpeg\r\n\r\n"};
constexpr reply_form kCloseForm{kOkStatus, "\r\nContent-Type: application/json\r\nConnection: close\r\n\r\n"};
constexpr reply_form kNoContentForm{" 204 No Content\r\n\r\n", ""};

// A header as it grows; the forms and three numbers fit.
struct header_text {
  char text[160];
  size_t length = 0;

  void add(std::string_view part) { length += part.copy(text + length, sizeof text - length); }
  void add(size_t number) {
    length = static_cast<size_t>(std::to_chars(text + length, text + sizeof text, number).ptr - text);
  }
};

void send_body(http_connection* connection, const reply_form& form, std::string_view body) {
  const http_request& request = connection->request;
  header_text header;
  header.add("HTTP/");
  header.add(static_cast<size_t>(request.major_version));
  header.add(".");
  header.add(static_cast<size_t>(request.minor_version));
  header.add(form.status);
  if (!form.headers.empty()) header.add(body.size());
  header.add(form.headers);
  http_connection_send(connection, header.text, header.length, body.data(), body.size());
}

void send_form(http_connection* connection, const reply_form& form, json_owner object) {
  if (!object) return;
  size_t length = 0;
  const char* body = json_object_to_json_string_length(object.get(), JSON_C_TO_STRING_NOSLASHESCAPE, &length);
  if (body != nullptr) send_body(connection, form, {body, length});
}

// An object of one member, whose value `add` appends.
template <typename Add>
int send_member(http_connection* connection, const char* key, Add add) {
  std::string body;
  append_json_key(&body, key);
  add(&body);
  body += '}';
  return send_json_text(connection, body);
}

}  // namespace

void jpeg_response_handler(http_connection* connection, std::string_view picture) {
  send_body(connection, kJpegForm, picture);
}

void response_handler(http_connection* connection) { send_body(connection, kCloseForm, {}); }

void json_v1_response_handler(http_connection* connection, json_object* object) {
  send_form(connection, kCloseForm, json_owner(object));
}

void json_v1_text_response_handler(http_connection* connection, std::string_view json) {
  send_body(connection, kCloseForm, json);
}

void empty_v1_response_handler(http_connection* connection) {
  json_v1_text_response_handler(connection, "{}");
}

void no_content_response_handler(http_connection* connection) { send_body(connection, kNoContentForm, {}); }

int send_status(http_connection* connection, bool good) {
  return send_json_text(connection, good ? R"({"status":"OK"})" : R"({"status":"BAD_REQUEST"})");
}

int send_job_status(http_connection* connection, int result) {
  if (result != 1) return send_status(connection, result == 0);
  return send_json_text(connection, R"({"status":"BUSY"})");
}

void add_status(json_object* answer, bool good) { add_text(answer, "status", good ? "OK" : "BAD_REQUEST"); }

int send_text(http_connection* connection, const char* key, const std::string& text) {
  return send_member(connection, key, [&](auto* body) { append_json_string(body, as_utf8(text)); });
}

int send_number(http_connection* connection, const char* key, int64_t number) {
  return send_member(connection, key, [=](auto* body) { *body += std::to_string(number); });
}

int send_flag(http_connection* connection, const char* key, bool is_on) {
  return send_member(connection, key, [=](auto* body) { *body += is_on ? "true" : "false"; });
}

int send_json(http_connection* connection, json_owner value) {
  send_form(connection, kJsonForm, std::move(value));
  return 0;
}

int send_json_text(http_connection* connection, std::string_view json) {
  send_body(connection, kJsonForm, json);
  return 0;
}
