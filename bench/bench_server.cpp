// The HTTP server beside others that give the same two answers: one client, a connection a request, server
// and client on one core, in rounds in which each has its turn. In the box: bench_server [ROUNDS [REQUESTS]]

#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>

#include "base/clock.h"
#include "base/paths.h"
#include "bench/served.h"
#include "bench/server_process.h"
#include "system/unit.h"

namespace {

constexpr int kWarmUp = 500;
constexpr int kTraced = 500;
constexpr uint16_t kFirstPort = 8001;
constexpr char kNginxFolder[] = "/tmp/bench_nginx";

const std::string kBuild = ORB_BUILD_FOLDER;

// One question, again and again.
class client {
 public:
  client(uint16_t port, const served& answer)
      : request_(
            "GET " + std::string(answer.path) +
            " HTTP/1.1\r\nHost: 127.0.0.1\r\nUser-Agent: tablet/2.1\r\nAccept: application/json\r\n\r\n") {
    server_.sin_family = AF_INET;
    server_.sin_port = htons(port);
    server_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  }

  // The body; nothing when the answer is not 200 or not whole.
  std::optional<std::string_view> ask() {
    const unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&server_), sizeof server_) != 0) return {};
    send(fd.get(), request_.data(), request_.size(), MSG_NOSIGNAL);
    size_t size = 0;
    ssize_t count = 0;
    while ((count = recv(fd.get(), reply_ + size, sizeof reply_ - size, 0)) > 0)
      size += static_cast<size_t>(count);
    return count == 0 ? body_of({reply_, size}) : std::nullopt;
  }

 private:
  static std::optional<std::string_view> body_of(std::string_view reply) {
    constexpr std::string_view kLength = "Content-Length: ";
    const size_t length = reply.find(kLength);
    const size_t end = reply.find("\r\n\r\n");
    if (!reply.starts_with("HTTP/1.1 200") || length > end || end == std::string_view::npos) return {};
    const std::string_view body = reply.substr(end + 4);
    const auto announced = strtoul(reply.data() + length + kLength.size(), nullptr, 10);
    return announced == body.size() ? std::optional(body) : std::nullopt;
  }

  std::string request_;
  sockaddr_in server_{};
  char reply_[16384];
};

struct turn {
  double rate;     // requests a second
  double cpu_us;   // the server's, of a request
  double core_us;  // server and client together: a rate that others on the core have no part in
  double sleeps;   // of a request
};

constexpr served kAnswers[] = {kSmall, kStatus};

struct contestant {
  std::string name;
  uint16_t port;
  child own;  // none of the daemon
  server_process process;
  std::vector<turn> turns[std::size(kAnswers)];
};

void ask_times(const contestant& server, const served& answer, int requests) {
  client asking(server.port, answer);
  for (int i = 0; i < requests; ++i) {
    if (asking.ask()) continue;
    fprintf(stderr, "bench: %s does not answer %s as it should\n", server.name.c_str(), answer.path.data());
    _exit(1);
  }
}

int64_t own_cpu_ns() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return now.tv_sec * kNanosecondsPerSecond + now.tv_nsec;
}

turn take_turn(const contestant& server, const served& answer, int requests) {
  const server_cost before = server.process.cost();
  const int64_t own_before = own_cpu_ns();
  const int64_t start = monotonic_ns();
  ask_times(server, answer, requests);
  const int64_t end = monotonic_ns();
  const int64_t own = own_cpu_ns() - own_before;
  sleep_ms(2);  // the server closes the last connection, and sleeps
  const server_cost after = server.process.cost();
  const int64_t cpu = after.cpu_ns - before.cpu_ns;
  return {requests * 1e9 / static_cast<double>(end - start), static_cast<double>(cpu) * 1e-3 / requests,
          static_cast<double>(cpu + own) * 1e-3 / requests,
          static_cast<double>(after.sleeps - before.sleeps) / requests};
}

// --- who takes part ---------------------------------------------------------------------------------------

std::vector<contestant> contestants;
constexpr size_t kOurs = 0;
constexpr size_t kBare = 1;

uint16_t next_port() { return static_cast<uint16_t>(kFirstPort + contestants.size()); }

bool gives_the_answers(uint16_t port) {
  return std::ranges::all_of(
      kAnswers, [port](const served& answer) { return client(port, answer).ask() == read_answer(answer); });
}

// `command` is a server on the next port.
void add(const char* name, const std::vector<std::string>& command, int core) {
  const uint16_t port = next_port();
  child own(command);
  if (!await([port] { return connect_to(port).get() >= 0; }) || !gives_the_answers(port))
    return (void)printf("%s: does not start, or gives other answers\n", name);
  server_process process(own.pid(), "", core);
  contestants.push_back({name, port, std::move(own), std::move(process), {}});
}

void add_built(const char* name, const char* program, const char* kind, int core) {
  add(name, {kBuild + program, std::to_string(next_port()), kind}, core);
}

void add_nginx(int core) {
  for (const char* folder : {kNginxFolder, "/var/lib/nginx"}) std::filesystem::create_directories(folder);
  std::string conf =
      "user root;\ndaemon off;\nmaster_process off;\nworker_processes 1;\npid pid;\n"
      "events { worker_connections 64; }\nhttp {\naccess_log off;\nserver_tokens off;\nkeepalive_timeout 0;\n"
      "default_type application/json;\nserver {\nlisten " +
      std::to_string(next_port()) + ";\n";
  for (const served& answer : kAnswers)
    conf += "location = " + std::string(answer.path) + " { return 200 '" + read_answer(answer) + "'; }\n";
  write_text(path_in(kNginxFolder, "conf"), conf + "}\n}\n");
  add("nginx", {"nginx", "-e", "stderr", "-p", kNginxFolder, "-c", "conf"}, core);
}

// False without the bare loop.
bool add_all(const child& daemon, int core) {
  contestants.push_back({"orbd", addresses::kApiPort, {}, {daemon.pid(), "http", core}, {}});
  add_built("bare epoll loop", "/server_others", "bare", core);
  if (contestants.size() <= kBare) return false;
  add_built("its server alone", "/server_alone", "", core);
  if (access("/usr/sbin/nginx", X_OK) == 0) {
    add_nginx(core);
  } else {
    puts("nginx: not installed (package nginx-light)");
  }
#ifdef WITH_MICROHTTPD
  add_built("libmicrohttpd", "/server_others", "microhttpd", core);
#else
  puts("libmicrohttpd: not installed when this was built (package libmicrohttpd-dev)");
#endif
#ifdef WITH_EVHTTP
  add_built("libevent's evhttp", "/server_others", "evhttp", core);
#else
  puts("libevent: not installed when this was built (package libevent-dev)");
#endif
  return true;
}

// --- the table --------------------------------------------------------------------------------------------

template <typename Figure>
double median(size_t rounds, Figure figure) {
  std::vector<double> values;
  for (size_t round = 0; round < rounds; ++round) values.push_back(figure(round));
  std::ranges::sort(values);
  return values[rounds / 2];
}

// A ratio is the median of each round's, as the machine may be slower in one round than in another.
void print_row(const contestant& server, size_t answer, long calls) {
  const std::vector<turn>& turns = server.turns[answer];
  const auto of = [&](double turn::*figure) {
    return median(turns.size(), [&](size_t round) { return turns[round].*figure; });
  };
  const auto ratio = [&](const std::vector<turn>& over, const std::vector<turn>& under) {
    return median(over.size(), [&](size_t round) { return over[round].rate / under[round].rate; });
  };
  const auto [lowest, highest] = std::ranges::minmax_element(turns, {}, &turn::rate);
  printf("%-18s %8.0f %8.0f-%-8.0f %7.2f %7.2f %8.1f %8.1f %7.2f %7.2f\n", server.name.c_str(),
         of(&turn::rate), lowest->rate, highest->rate, ratio(turns, contestants[kBare].turns[answer]),
         ratio(contestants[kOurs].turns[answer], turns), of(&turn::cpu_us), of(&turn::core_us),
         of(&turn::sleeps), static_cast<double>(calls) / kTraced);
}

void print_table(size_t answer, std::string* lists) {
  printf("\nGET %s, %zu bytes\n%-18s %8s %17s %7s %7s %8s %8s %7s %7s\n", kAnswers[answer].path.data(),
         read_answer(kAnswers[answer]).size(), "", "req/s", "lowest-highest", "to bare", "orbd to", "CPU us",
         "both us", "sleeps", "calls");
  for (const contestant& server : contestants) {
    long sum = 0;
    std::string list = server.name + " " + kAnswers[answer].path.data() + ":";
    for (const auto& [name, count] :
         server.process.system_calls([&] { ask_times(server, kAnswers[answer], kTraced); })) {
      sum += count;
      char text[64];
      snprintf(text, sizeof text, " %s %.2f", name.c_str(), static_cast<double>(count) / kTraced);
      if (count * 50 > kTraced) list += text;
    }
    print_row(server, answer, sum);
    if (answer == 0 || server.name == contestants[kOurs].name) *lists += list + "\n";
  }
}

// The highest one that this program may use: interrupts tend to go to the first.
int choose_core() {
  cpu_set_t cores;
  sched_getaffinity(0, sizeof cores, &cores);
  int core = CPU_SETSIZE - 1;
  while (core > 0 && !CPU_ISSET(static_cast<size_t>(core), &cores)) --core;
  return core;
}

void print_conditions(int core, long rounds, long requests) {
  double load = 0;
  getloadavg(&load, 1);
  printf(
      "one client, one request a connection, servers and client on core %d; %ld rounds of %ld and %ld "
      "requests; "
      "medians; the machine's load at the start: %.1f\n"
      "both us: processor time of server and client; sleeps: how often the server waited, more than once "
      "when the "
      "request was not there with its connection\n",
      core, rounds, requests, requests / 2, load);
}

// The first one, -1, only warms up. Each begins with another server.
void run_round(long round, long requests) {
  for (size_t i = 0; i < contestants.size(); ++i) {
    contestant& server = contestants[(i + static_cast<size_t>(round + 1)) % contestants.size()];
    for (size_t answer = 0; answer < std::size(kAnswers); ++answer) {
      const long times = round < 0 ? kWarmUp : requests / (answer == 0 ? 1 : 2);
      const turn taken = take_turn(server, kAnswers[answer], static_cast<int>(times));
      if (round >= 0) server.turns[answer].push_back(taken);
    }
  }
}

// The daemon's, for the others.
bool keep_answers() {
  for (const served& answer : kAnswers) {
    client asking(addresses::kApiPort, answer);
    const auto body = asking.ask();
    if (!body || body->find_first_of("'$\\") != std::string_view::npos) return false;  // nginx reads these
    write_text(answer.file, std::string(*body));
  }
  return true;
}

}  // namespace

int main(int count, char** arguments) {
  const long rounds = count > 1 ? strtol(arguments[1], nullptr, 10) : 5;
  const long requests = count > 2 ? strtol(arguments[2], nullptr, 10) : 20'000;
  if (rounds < 1 || requests < 2 || requests > 1'000'000) return 2;
  signal(SIGPIPE, SIG_IGN);
  const child redis = start_redis();
  const child camera = start_camera();
  const child daemon = start_daemon();
  if (!await_api() || !keep_answers()) return puts("bench: the daemon does not answer"), 1;
  const int core = choose_core();
  if (!add_all(daemon, core)) return 1;
  pin_to_core(0, core);
  print_conditions(core, rounds, requests);
  for (long round = -1; round < rounds; ++round) run_round(round, requests);
  std::string lists;
  for (size_t answer = 0; answer < std::size(kAnswers); ++answer) print_table(answer, &lists);
  printf("\nsystem calls of a request, counted by tracing, which makes the server slow:\n%s", lists.c_str());
  contestants.clear();
  return 0;
}
