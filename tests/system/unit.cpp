#include "system/unit.h"

#include <sys/un.h>

static const std::string kBuild = ORB_BUILD_FOLDER;

child::child(const std::vector<std::string>& command, const std::string& preload) {
  const unique_fd log(open("/tmp/children.log", O_WRONLY | O_CREAT | O_APPEND, 0644));
  const std::string words = "exec env LD_PRELOAD='" + preload + "' \"$@\" 2>&1";
  std::vector<const char*> arguments{"sh", "-c", words.c_str(), "sh"};
  for (const std::string& word : command) arguments.push_back(word.c_str());
  arguments.push_back(nullptr);
  child_process process;
  start_child({paths::kShell, arguments.data(), log.get(), false, SIGKILL}, &process);
  pid_ = process.pid;
}

child::child(child&& other) noexcept : pid_(std::exchange(other.pid_, 0)) {}

child& child::operator=(child&& other) noexcept {
  std::swap(pid_, other.pid_);
  return *this;
}

child::~child() {
  if (pid_ == 0) return;
  signal(SIGKILL);
  wait();
}

void child::signal(int number) const {
  if (pid_ != 0) kill(pid_, number);
}

int child::wait() {
  int status = 0;
  waitpid(std::exchange(pid_, 0), &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

child start_redis() {
  child redis({"redis-server", "--bind", "127.0.0.1", "--save", "", "--dir", "/tmp"});
  await([] { return connect_to(addresses::kRedisPort).get() >= 0; });
  return redis;
}

child start_camera(bool with_picture) {
  child camera(with_picture ? std::vector{kBuild + "/sim_camera"}
                            : std::vector{kBuild + "/sim_camera", std::string("--no-picture")});
  await([] { return !ctl("camera", "show").empty(); });
  return camera;
}

child start_daemon() { return child({kBuild + "/orbd"}, kBuild + "/libboard_preload.so"); }

child start_serving_daemon() {
  child daemon = start_daemon();
  EXPECT_TRUE(await_api());
  return daemon;
}

bool await_api() {
  if (!await([] { return !http("GET", "/api/camera/zoom/speed").body.empty(); })) return false;
  return await([] { return ctl("board", "strict on") == "ok\n"; });  // its thread may start after the API's
}

reply http(const std::string& method, const std::string& path, const std::string& body) {
  const std::string text = http_exchange(method, path, body);
  const size_t end = text.find("\r\n\r\n");
  return end == std::string::npos ? reply{text, ""} : reply{text.substr(0, end), text.substr(end + 4)};
}

std::string ctl(const std::string& device, const std::string& line) {
  sockaddr_un to{};
  to.sun_family = AF_UNIX;
  snprintf(to.sun_path, sizeof to.sun_path, "/run/bench/%s.ctl", device.c_str());
  const unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connect(fd.get(), reinterpret_cast<sockaddr*>(&to), sizeof to) != 0) return "";
  return tell(fd, line + "\n");
}

double number_after(const std::string& text, std::string_view name) {
  const size_t at = text.find(name);
  return at == std::string::npos ? -1e9 : strtod(text.c_str() + at + name.size(), nullptr);
}

std::string read_text(const std::string& path) { return read_file(path.c_str(), 1 << 30).value_or(""); }

void write_text(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

std::string trace_log() {
  return std::regex_replace(read_text(paths::kTrace), std::regex(R"( \[\d\d:\d\d:\d\d\.\d\d\d\])"), "");
}

std::string power_calls() {
  return std::regex_replace(read_text("/tmp/power_calls"), std::regex("\\S+T\\S+ "), "");
}

bool await_completion() {
  return await([] { return access(paths::kTakeGuid, F_OK) != 0; }, 25);
}

double duration(const std::string& path) {
  const std::string command = "ffprobe -v error -show_entries format=duration -of csv=p=0 ";
  return strtod(shell_first_line(command + shell_quoted(path), 20).c_str(), nullptr);
}

int playable_takes() {
  int count = 0;
  std::error_code none;  // before the first take there is no folder
  for (const auto& file : std::filesystem::directory_iterator(paths::kUsbTakes, none))
    count += file.path().extension() == ".mp4" && duration(file.path()) > 1;
  return count;
}
