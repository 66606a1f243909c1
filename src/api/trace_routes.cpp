// "/api/trace": what is traced.

#include <cstdint>
#include <optional>

#include "api/routes.h"
#include "base/trace.h"
#include "http/response.h"

namespace {

// As a signed number, like the one that a client has to send for the highest bit.
int get_mask(http_connection* connection) {
  return send_number(connection, "trace_mask", static_cast<int>(get_trace_mask()));
}

// The mask holds when the file's monitor has read it.
int put_mask(http_connection* connection, json_object* body) {
  const std::optional<int> number = body_integer(body, "trace_mask");
  const auto mask = static_cast<uint32_t>(number.value_or(-1));
  trace(kTraceApi, "trace mask %d %08lX", number ? 1 : 0, static_cast<unsigned long>(mask));
  return send_status(connection, number && set_trace_mask(mask) >= 0);
}

constexpr http_path kPaths[] = {
    {"/api/trace/mask", get<get_mask>, put<put_mask>.in(store_lane)},
};

}  // namespace

constinit const route_group trace_routes(kRows<kPaths, route_counts{.get = 1, .put = 1}>);
