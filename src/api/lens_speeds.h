// The speeds of zoom and focus as their files hold them, which other programs may write, too: kept until one
// of the files changes. HTTP thread.
#pragma once

struct http_server;

struct lens_speeds {
  int focus;
  int zoom;
};

lens_speeds load_lens_speeds();

// From here on the server's thread learns of a change before the requests that come behind it.
void watch_lens_speeds(http_server* server);
