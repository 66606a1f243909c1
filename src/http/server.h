// A small single-threaded HTTP/1.x server on non-blocking sockets and epoll: one request a connection,
// answered by the first route that fits. Connection records are allocated once. A request that is there when
// its connection is accepted costs six system calls; only one that comes later is ever watched by epoll.
// Everything here runs on the HTTP thread, but for what says otherwise.
#pragma once

#include <netinet/in.h>
#include <sys/epoll.h>

#include <cstdint>

#include "base/mutex.h"
#include "http/request.h"

struct http_server;
struct http_connection;
struct http_route;

// Answers a request (body: `length` bytes, null when there is none) through http/response.h and returns 0:
// the connection is then closed, as soon as the client has taken the whole reply. A result above 0 keeps the
// connection bound to the route; the handler is then called with whatever arrives.
using http_handler_function = int(http_connection* connection, const char* body, unsigned long length,
                                  void* user_data);
using http_handler = http_handler_function*;

// Called when the peer of a bound connection hangs up.
using http_close_handler = void (*)(http_connection* connection, void* user_data, http_route* route);

struct http_route {
  http_route* next;
  char* method;  // one that begins with "*" matches every method
  char* path;    // prefix of the request's path
  size_t path_length;
  http_handler handler;
  http_close_handler close_handler;  // may be null
  void* user_data;
};

struct http_connection {
  http_server* server = nullptr;
  http_connection* next = nullptr;   // in the free or the active list
  http_connection** link = nullptr;  // the pointer that points here
  int fd = -1;
  bool is_added = false;                 // to epoll
  bool is_armed = false;                 // epoll will tell of it, once
  bool is_drained = false;               // nothing of the peer's is left unread
  http_handler held_for = nullptr;       // who answers instead of the server's thread
  http_connection* next_held = nullptr;  // in its lane, then among those that came back
  sockaddr_in peer{};
  socklen_t peer_length = sizeof(sockaddr_in);
  http_route* route = nullptr;  // whose handler owns the connection
  int64_t asked_ns = 0;         // when its request was whole
  char* unsent = nullptr;       // heap: the part of the reply that the socket did not take at once
  size_t unsent_length = 0;
  size_t unsent_sent = 0;
  int64_t progress_ns = 0;  // when the socket last took some of it
  http_request request;
};

// Something else that the server's thread waits for: `act` is called when `fd` can be read.
struct http_watch {
  int fd = -1;
  void (*act)(void* its) = nullptr;
  void* its = nullptr;
};

struct http_server {
  int fd = -1;  // listening
  sockaddr_in address{};
  int maximum_connections = 0;
  int epoll_fd = -1;
  bool accepting = false;  // the listener is armed: only while a record is free, or epoll would spin
  epoll_event* events = nullptr;
  http_route* routes = nullptr;
  http_route** last_route = nullptr;  // where the next route is linked
  http_connection* free = nullptr;
  http_connection* active = nullptr;
  uint64_t active_count = 0;
  uint64_t accepted_count = 0;
  std::array<http_watch, 2> watches{};
  size_t watch_count = 0;
  int return_fd = -1;  // an eventfd: connections have come back
  mutex return_lock{};
  http_connection* returned GUARDED_BY(return_lock) = nullptr;  // linked by next_held
};

// Listens on `port` of every local address. Null on failure (traced).
http_server* http_server_init(unsigned short port, int maximum_connections);

void http_server_destroy(http_server* server);

// Adds a route at the end of the list: the first that fits a request takes it. 0, or -1 when memory runs out.
int http_server_register_handler(http_server* server, const char* method, const char* path,
                                 http_handler handler, http_close_handler close_handler, void* user_data);

// False when it cannot be waited for.
bool http_server_watch(http_server* server, const http_watch& watch);

// Waits up to `timeout_ms` and serves what has happened. 0, or -1 when waiting failed.
int http_server_process_events(http_server* server, int timeout_ms);

// For a handler that has its connection answered elsewhere, and then returns 1: the server leaves the
// connection alone until it comes back, and closes it then as after a handler's return.
void http_connection_hold(http_connection* connection, http_handler handler);

// Any thread; the connection is the server's from here on.
void http_connection_return(http_connection* connection);

// Accepts one connection into a free record; null when none waits, none is free or it failed (errno tells).
http_connection* http_server_accept_connection(http_server* server);

// Sends header and body, all of it: what the socket does not take now goes out when it is writable again; a
// client that takes nothing for 5 s is closed. A reply that cannot be kept is cut off by closing the
// connection. Whoever has the connection.
void http_connection_send(http_connection* connection, const char* header, size_t header_length,
                          const char* body, size_t body_length);

// The fixed page of a path without a route, also for what a route does not have. Returns 0, the result of a
// handler.
int http_connection_send_not_found(http_connection* connection);
