// "/api/seats": who controls the unit, and who watches.

#include "api/routes.h"
#include "base/trace.h"
#include "http/response.h"
#include "seats/seats.h"

namespace {

constexpr size_t kActionSize = 20;

int post_request(http_connection* connection, json_object* body) {
  const body_word role = body_text(body, "seat_role").value_or(body_word{});
  trace(kTraceApi, "seat request '%s'", role.text);
  const seat_token token = request_seat(role.text);
  trace(kTraceApi, "seat token '%s'", token.text);
  return send_text(connection, "seat_token", token.text);
}

int post_update(http_connection* connection, json_object* body) {
  char action[kActionSize];
  seat_token token;
  copy_body_text(body, "seat_update", action, sizeof action);
  copy_body_text(body, "seat_token", token.text, sizeof token.text);
  trace(kTraceApi, "seat update '%s' '%s'", action, token.text);
  const seat_answer answer = update_seat(action, token.text);
  trace(kTraceApi, "seat status %d %d '%s'", answer.available.controller, answer.available.observer,
        answer.role);
  return send_object(connection, [&](json_object* reply) {
    add_number(reply, "controller_seats", answer.available.controller);
    add_number(reply, "observer_seats", answer.available.observer);
    add_text(reply, "seat_role", answer.role);
  });
}

constexpr http_path kPaths[] = {
    {"/api/seats/request", post<post_request>},
    {"/api/seats/update", post<post_update>},
};

}  // namespace

constinit const route_group seat_routes(kRows<kPaths, route_counts{.post = 2}>);
