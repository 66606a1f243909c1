// Options of a TCP connection.
#pragma once

// Sends small messages at once, and lets the kernel find out within about 15 s that the peer is gone without
// a word (a tablet out of Wi-Fi range, a camera without power). Any thread.
void set_tcp_options(int fd);
