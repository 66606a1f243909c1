// The handlers of "/api/seats" and "/api/setup/observer_seats".

#include "api/seat_routes.h"

#include <cstdio>

#include "base/trace.h"
#include "http/json_body.h"
#include "http/response.h"
#include "seats/seats.h"

namespace {

constexpr size_t kActionSize = 20;

}  // namespace

int get_observer_seats(http_connection* connection, const char*, unsigned long, void*) {
  char text[12];
  snprintf(text, sizeof text, "%d", observer_seats());
  return send_member(connection, "observer_seats", json_object_new_string(text));
}

int put_observer_seats(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  const body_word word = body_text(object.get(), "observer_seats").value_or(body_word{});
  const char digit = word.text[0];
  const bool good = digit >= '0' && digit <= '0' + kMaximumObservers && word.text[1] == '\0';
  if (good) {
    trace(kTraceApi, "observer seats '%s'", word.text);
    set_observer_seats(digit - '0');
  }
  return send_status(connection, good);
}

int post_seat_request(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  const body_word role = body_text(object.get(), "seat_role").value_or(body_word{});
  trace(kTraceApi, "seat request '%s'", role.text);
  const seat_token token = request_seat(role.text);
  trace(kTraceApi, "seat token '%s'", token.text);
  return send_member(connection, "seat_token", json_object_new_string(token.text));
}

int post_seat_update(http_connection* connection, const char* body, unsigned long length, void*) {
  const json_owner object = read_json_body(connection, body, length);
  char action[kActionSize];
  seat_token token;
  copy_body_text(object.get(), "seat_update", action, sizeof action);
  copy_body_text(object.get(), "seat_token", token.text, sizeof token.text);
  trace(kTraceApi, "seat update '%s' '%s'", action, token.text);
  const seat_answer answer = update_seat(action, token.text);
  trace(kTraceApi, "seat status %d %d '%s'", answer.available.controller, answer.available.observer,
        answer.role);
  return send_object(connection, [&](json_object* reply) {
    json_object_object_add(reply, "controller_seats", json_object_new_int(answer.available.controller));
    json_object_object_add(reply, "observer_seats", json_object_new_int(answer.available.observer));
    json_object_object_add(reply, "seat_role", json_object_new_string(answer.role));
  });
}
