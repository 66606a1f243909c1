#include "base/tcp.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace {

struct tcp_option {
  int level;
  int name;
  int value;
};

constexpr tcp_option kOptions[] = {
    {IPPROTO_TCP, TCP_NODELAY, 1},           {SOL_SOCKET, SO_KEEPALIVE, 1},
    {IPPROTO_TCP, TCP_KEEPIDLE, 5},  // s without traffic before the first probe
    {IPPROTO_TCP, TCP_KEEPINTVL, 5},         {IPPROTO_TCP, TCP_KEEPCNT, 2},
    {IPPROTO_TCP, TCP_USER_TIMEOUT, 15'000},  // ms that sent bytes may stay unacknowledged
};

}  // namespace

void set_tcp_options(int fd) {
  for (const tcp_option& option : kOptions) {
    setsockopt(fd, option.level, option.name, &option.value, sizeof option.value);
  }
}
