// The thread that serves the API.
#pragma once

inline constexpr int kHttpConnections = 15;

// The thread's body: prepares the state that the handlers share, registers the routes and serves for ever.
// Returns -1 when the server cannot be created; the rest of the unit goes on without an API.
int http_server_thread();
