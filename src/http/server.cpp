#include "http/server.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "base/clock.h"
#include "base/tcp.h"
#include "base/trace.h"

namespace {

constexpr size_t kReadSize = 8192;
constexpr int kDrainReads = 32;  // of kReadSize each, before a close
// A reply that is longer, or that took longer, could be lost to what the peer sends meanwhile.
constexpr size_t kSmallReply = 8192;
constexpr int64_t kAtOnce_ns = kNanosecondsPerMillisecond / 2;
constexpr int64_t kStallLimit_ns = 5'000 * kNanosecondsPerMillisecond;

constexpr std::string_view kNotFound =
    "HTTP/1.1 404 Not Found\r\nConnection: close\r\nContent-Length: 106\r\n\r\n"
    "<!DOCTYPE html>\r\n<html><head><title>404 Not Found</title></head>"
    "<body><h2>404 Not Found</h2></body></html>";
static_assert(kNotFound.size() == 172);

void trace_failure(const char* what) { trace(kTraceHttpServer, "%s %s", what, strerror(errno)); }

void push(http_connection** list, http_connection* connection) {
  connection->next = *list;
  connection->link = list;
  if (*list != nullptr) (*list)->link = &connection->next;
  *list = connection;
}

void unlink_record(http_connection* connection) {
  *connection->link = connection->next;
  if (connection->next != nullptr) connection->next->link = connection->link;
}

// `what` comes back with the events.
bool watch(const http_server* server, int operation, int fd, uint32_t events, void* what) {
  epoll_event event{.events = events, .data = {.ptr = what}};
  return epoll_ctl(server->epoll_fd, operation, fd, &event) == 0;
}

void set_accepting(http_server* server, bool accepting) {
  if (server->accepting == accepting) return;
  const uint32_t events = accepting ? uint32_t{EPOLLIN} : 0;
  if (watch(server, EPOLL_CTL_MOD, server->fd, events, server)) server->accepting = accepting;
}

// For one event: a socket that is closed behind it needs no word to epoll.
bool watch_connection(http_connection* connection, uint32_t events) {
  const int operation = connection->is_added ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
  connection->is_armed =
      watch(connection->server, operation, connection->fd, events | EPOLLONESHOT, connection);
  connection->is_added |= connection->is_armed;
  return connection->is_armed;
}

// A child process that has not reached its exec keeps the socket open: epoll would go on telling of it, and
// the record may be another connection's by then.
void unwatch_connection(http_connection* connection) {
  if (connection->is_armed) epoll_ctl(connection->server->epoll_fd, EPOLL_CTL_DEL, connection->fd, nullptr);
  connection->is_added &= !connection->is_armed;
  connection->is_armed = false;
}

// Reads away what the peer has sent beyond its request: closing over unread bytes would reset the connection
// and could take the reply with it.
void drain(int fd) {
  char buffer[kReadSize];
  for (int i = 0; i < kDrainReads && recv(fd, buffer, sizeof buffer, MSG_DONTWAIT) > 0; ++i) {
  }
}

void close_connection(http_connection* connection) {
  http_server* server = connection->server;
  --server->active_count;
  unwatch_connection(connection);
  http_request_context_free(&connection->request);
  free(connection->unsent);
  connection->unsent = nullptr;
  shutdown(connection->fd, SHUT_WR);  // sends what http_connection_send has kept for the end to go with
  if (!connection->is_drained) drain(connection->fd);
  close(connection->fd);
  connection->fd = -1;
  unlink_record(connection);
  push(&server->free, connection);
  set_accepting(server, true);
}

// Closes now, or when the rest of the reply is gone.
void finish_connection(http_connection* connection) {
  if (connection->unsent == nullptr) return close_connection(connection);
  connection->is_drained = false;
  // A client that has closed its sending side still reads, so only a writable or broken socket is of
  // interest.
  if (!watch_connection(connection, EPOLLOUT)) close_connection(connection);
}

void send_unsent(http_connection* connection) {
  const ssize_t count =
      send(connection->fd, connection->unsent + connection->unsent_sent,
           connection->unsent_length - connection->unsent_sent, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (count < 0 && errno != EAGAIN && errno != EINTR) return close_connection(connection);
  if (count > 0) {
    connection->progress_ns = monotonic_ns();
    connection->unsent_sent += static_cast<size_t>(count);
  }
  if (connection->unsent_sent == connection->unsent_length) return close_connection(connection);
  finish_connection(connection);
}

void close_stalled(http_server* server) {
  const int64_t now = monotonic_ns();
  for (http_connection* connection = server->active; connection != nullptr;) {
    http_connection* next = connection->next;
    if (connection->held_for == nullptr && connection->unsent != nullptr &&
        now - connection->progress_ns > kStallLimit_ns)
      close_connection(connection);
    connection = next;
  }
}

http_route* find_route(const http_server* server, const http_request* request) {
  const size_t length = strlen(request->path);
  for (http_route* route = server->routes; route != nullptr; route = route->next) {
    if (route->path_length > length || memcmp(route->path, request->path, route->path_length) != 0) continue;
    if (route->method[0] == '*' || strcmp(route->method, request->method) == 0) return route;
  }
  return nullptr;
}

// Whether more than the request may come from the peer: bytes behind it are here already, or it has a body
// that no "Content-Length" announced.
bool may_send_more(const http_request& request, size_t consumed, size_t count) {
  const bool has_no_body = request.content_length == 0 && strcmp(request.method, "GET") != 0;
  return consumed < count || count == kReadSize || has_no_body;
}

// What a connection that is kept has been sent so far does not wait for its end.
void push_reply(const http_connection* connection) { set_tcp_options(connection->fd); }

// Returns true when the connection has been closed, waits only for its reply to go out, or is not ours now.
bool answer_request(http_connection* connection) {
  http_request& request = connection->request;
  http_route* route = find_route(connection->server, &request);
  if (route == nullptr) {
    http_connection_send_not_found(connection);
    finish_connection(connection);
    return true;
  }
  connection->route = route;
  connection->asked_ns = monotonic_ns();
  const int result = route->handler(connection, request.content,
                                    static_cast<unsigned long>(request.content_length), route->user_data);
  if (connection->held_for != nullptr) return true;
  connection->is_drained &= monotonic_ns() - connection->asked_ns < kAtOnce_ns;
  if (result <= 0 || connection->unsent != nullptr) {
    finish_connection(connection);
    return true;
  }
  http_request_context_free(&request);
  push_reply(connection);
  return false;
}

// Reads once, or to the end when the peer has hung up. Returns true when the connection is done with.
bool read_connection(http_connection* connection, bool hung_up) {
  char buffer[kReadSize];
  ssize_t count = 0;
  do {
    count = recv(connection->fd, buffer, sizeof buffer, MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return false;
    if (count < 0) {
      http_request_context_free(&connection->request);
      connection->request.state = kHttpMalformed;  // its body is gone
      shutdown(connection->fd, SHUT_RD);
      return false;
    }
    if (connection->route != nullptr) {
      connection->route->handler(connection, buffer, static_cast<unsigned long>(count),
                                 connection->route->user_data);
      push_reply(connection);
    } else if (size_t consumed = 0;
               http_request_parse_http_header(&connection->request, buffer, static_cast<size_t>(count),
                                              &consumed) == 0) {
      connection->is_drained = !may_send_more(connection->request, consumed, static_cast<size_t>(count));
      if (answer_request(connection)) return true;
    }  // else more is needed, or it is malformed: that gets no answer, and its peer has to hang up
  } while (hung_up && count > 0);
  return false;
}

// From here on the connection is served when it has something to read.
void await_request(http_connection* connection) {
  if (watch_connection(connection, EPOLLIN | EPOLLRDHUP)) return;
  trace_failure("bad poll");
  close_connection(connection);
}

void serve_connection(http_connection* connection, uint32_t events) {
  connection->is_armed = false;
  if (connection->unsent != nullptr) {
    const bool is_broken = (events & (EPOLLERR | EPOLLHUP)) != 0;
    return is_broken ? close_connection(connection) : send_unsent(connection);
  }
  const bool hung_up = (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
  if ((events & EPOLLIN) != 0 && read_connection(connection, hung_up)) return;
  if (!hung_up) return await_request(connection);
  http_route* route = connection->route;
  if (route != nullptr && route->close_handler != nullptr)
    route->close_handler(connection, route->user_data, route);
  close_connection(connection);
}

// Accepts into a free record; null when none waits, none is free or it failed (errno tells).
http_connection* accept_connection(http_server* server) {
  http_connection* connection = server->free;
  if (connection == nullptr) return nullptr;
  connection->peer = {};
  connection->peer_length = sizeof connection->peer;
  const int fd = accept4(server->fd, reinterpret_cast<sockaddr*>(&connection->peer), &connection->peer_length,
                         SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (fd < 0) return nullptr;
  ++server->active_count;
  ++server->accepted_count;
  unlink_record(connection);
  push(&server->active, connection);
  http_request_reset(&connection->request);
  connection->fd = fd;
  connection->is_added = false;
  connection->is_drained = false;
  connection->route = nullptr;
  return connection;
}

// One connection a wake: who waits behind it wakes the thread again.
void serve_new_connection(http_server* server) {
  http_connection* connection = accept_connection(server);
  if (connection == nullptr) {
    if (errno == EAGAIN) return;
    trace_failure("accept error");
    if (errno == EINVAL) listen(server->fd, server->maximum_connections);  // somebody has shut it
    // Out of descriptors, say: not to be asked again for one wait, or epoll_wait would return at once for
    // ever.
    return set_accepting(server, false);
  }
  if (!read_connection(connection, false)) await_request(connection);
  if (server->free == nullptr) set_accepting(server, false);
}

void finish_returned(void* its) {
  auto* server = static_cast<http_server*>(its);
  uint64_t count = 0;
  if (read(server->return_fd, &count, sizeof count) < 0) return;
  http_connection* connection = nullptr;
  {
    const mutex_lock lock(server->return_lock);
    connection = std::exchange(server->returned, nullptr);
  }
  while (connection != nullptr) {
    http_connection* next = connection->next_held;
    connection->held_for = nullptr;
    finish_connection(connection);
    connection = next;
  }
}

// Listener, watches, and a connection in each record.
int event_slots(const http_server& server) {
  return 1 + static_cast<int>(server.watches.size()) + server.maximum_connections;
}

const http_watch* find_watch(const http_server* server, const void* what) {
  for (const http_watch& watch : server->watches)
    if (&watch == what) return &watch;
  return nullptr;
}

// Each step of http_server_init; false after tracing why.
bool open_listener(http_server* server) {
  server->fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (server->fd < 0) return trace_failure("socket alloc fail"), false;
  const int flags = fcntl(server->fd, F_GETFL);
  if (flags < 0) return trace_failure("flags fail"), false;
  if (fcntl(server->fd, F_SETFL, flags | O_NONBLOCK) < 0) return trace_failure("control fail"), false;
  const int on = 1;
  if (setsockopt(server->fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0) trace_failure("option fail");
  if (bind(server->fd, reinterpret_cast<const sockaddr*>(&server->address), sizeof server->address) < 0)
    return trace_failure("bind fail"), false;
  set_tcp_options(server->fd);  // accepted connections inherit them
  if (listen(server->fd, server->maximum_connections) < 0) return trace_failure("listen fail"), false;
  return true;
}

bool open_poll(http_server* server) {
  server->epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  if (server->epoll_fd < 0) return trace_failure("poll fail"), false;
  server->events =
      static_cast<epoll_event*>(calloc(static_cast<size_t>(event_slots(*server)), sizeof(epoll_event)));
  if (server->events == nullptr) return trace_failure("events fail"), false;
  server->return_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (!watch(server, EPOLL_CTL_ADD, server->fd, EPOLLIN, server) ||
      !http_server_watch(server, {server->return_fd, finish_returned, server}))
    return trace_failure("poll control fail"), false;
  server->accepting = true;
  return true;
}

bool allocate_connections(http_server* server) {
  for (int i = 0; i < server->maximum_connections; ++i) {
    auto* connection = new (std::nothrow) http_connection;
    if (connection == nullptr) return trace_failure("null connection"), false;
    connection->server = server;
    push(&server->free, connection);
  }
  return true;
}

void free_route(http_route* route) {
  free(route->method);
  free(route->path);
  free(route);
}

}  // namespace

http_server* http_server_init(unsigned short port, int maximum_connections) {
  trace(kTraceHttpServer, "starting http server on port %d\n", port);
  auto* server = new (std::nothrow) http_server;
  if (server == nullptr) return trace_failure("server alloc fail"), nullptr;
  server->maximum_connections = maximum_connections;
  server->last_route = &server->routes;
  server->address.sin_family = AF_INET;
  server->address.sin_addr.s_addr = htonl(INADDR_ANY);
  server->address.sin_port = htons(port);
  if (!open_listener(server) || !open_poll(server) || !allocate_connections(server)) {
    http_server_destroy(server);
    return nullptr;
  }
  trace(kTraceHttpServer, "listening on port %d", port);
  return server;
}

void http_server_destroy(http_server* server) {
  while (server->active != nullptr) close_connection(server->active);
  while (server->free != nullptr) delete std::exchange(server->free, server->free->next);
  while (server->routes != nullptr) free_route(std::exchange(server->routes, server->routes->next));
  free(server->events);
  if (server->epoll_fd >= 0) close(server->epoll_fd);
  if (server->return_fd >= 0) close(server->return_fd);
  if (server->fd >= 0) close(server->fd);
  delete server;
}

int http_server_register_handler(http_server* server, const char* method, const char* path,
                                 http_handler handler, http_close_handler close_handler, void* user_data) {
  auto* route = static_cast<http_route*>(calloc(1, sizeof(http_route)));
  if (route == nullptr) return trace_failure("null handler"), -1;
  route->method = strdup(method);
  if (route->method == nullptr) return trace_failure("null method"), free_route(route), -1;
  route->path = strdup(path);
  if (route->path == nullptr) return trace_failure("null path"), free_route(route), -1;
  route->path_length = strlen(path);
  route->handler = handler;
  route->close_handler = close_handler;
  route->user_data = user_data;
  *server->last_route = route;
  server->last_route = &route->next;
  return 0;
}

http_connection* http_server_accept_connection(http_server* server) {
  http_connection* connection = accept_connection(server);
  if (connection == nullptr) return nullptr;
  if (server->free == nullptr) set_accepting(server, false);
  await_request(connection);
  return connection->fd >= 0 ? connection : nullptr;
}

bool http_server_watch(http_server* server, const http_watch& watch_for) {
  if (watch_for.fd < 0 || server->watch_count == server->watches.size()) return false;
  http_watch& kept = server->watches[server->watch_count];
  kept = watch_for;
  if (!watch(server, EPOLL_CTL_ADD, kept.fd, EPOLLIN, &kept)) return false;
  ++server->watch_count;
  return true;
}

int http_server_process_events(http_server* server, int timeout_ms) {
  const bool accepting = server->accepting;  // a listener disarmed during this call stays so for one wait
  const int count = epoll_wait(server->epoll_fd, server->events, event_slots(*server), timeout_ms);
  if (count < 0 && errno != EINTR) return trace_failure("bad wait"), -1;
  for (int i = 0; i < count; ++i) {
    const epoll_event& event = server->events[i];
    if (event.data.ptr == server) {
      serve_new_connection(server);
    } else if (const http_watch* watched = find_watch(server, event.data.ptr)) {
      watched->act(watched->its);
    } else {
      serve_connection(static_cast<http_connection*>(event.data.ptr), event.events);
    }
  }
  close_stalled(server);
  if (!accepting && server->free != nullptr) set_accepting(server, true);
  return 0;
}

void http_connection_hold(http_connection* connection, http_handler handler) {
  unwatch_connection(connection);
  connection->is_drained = false;
  connection->held_for = handler;
}

void http_connection_return(http_connection* connection) {
  http_server* server = connection->server;
  const mutex_lock lock(server->return_lock);
  connection->next_held = std::exchange(server->returned, connection);
  const uint64_t one = 1;
  if (write(server->return_fd, &one, sizeof one) < 0) trace_failure("bad return");
}

void http_connection_send(http_connection* connection, const char* header, size_t header_length,
                          const char* body, size_t body_length) {
  if (connection->unsent != nullptr) return;  // one reply a connection
  iovec parts[2] = {{const_cast<char*>(header), header_length}, {const_cast<char*>(body), body_length}};
  msghdr message{};
  message.msg_iov = parts;
  message.msg_iovlen = body_length == 0 ? 1 : 2;
  // A reply and the end of its connection go out in one packet where they fit.
  ssize_t count = sendmsg(connection->fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT | MSG_MORE);
  if (count < 0 && errno != EAGAIN && errno != EINTR) return;  // the peer is gone
  if (count < 0) count = 0;
  const auto sent = static_cast<size_t>(count);
  const size_t total = header_length + body_length;
  connection->is_drained &= total < kSmallReply;
  if (sent == total) return;

  auto* rest = static_cast<char*>(malloc(total));
  if (rest == nullptr) return;
  memcpy(rest, header, header_length);
  if (body_length != 0) memcpy(rest + header_length, body, body_length);
  connection->unsent = rest;
  connection->unsent_length = total;
  connection->unsent_sent = sent;
  connection->progress_ns = monotonic_ns();
}

int http_connection_send_not_found(http_connection* connection) {
  shutdown(connection->fd, SHUT_RD);
  http_connection_send(connection, kNotFound.data(), kNotFound.size(), nullptr, 0);
  return 0;
}
