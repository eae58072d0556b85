// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/klog.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "tarn/event.h"

namespace driver_test {
namespace {

constexpr char kControl[] = "/sys/kernel/debug/tarn/control";
constexpr char kStatus[] = "/sys/kernel/debug/tarn/status";
constexpr char kModule[] = "/modules/tarn_platform.ko";
constexpr int kReadAll = 3;  // of klogctl
constexpr int kBufferSize = 10;

std::mutex occurrences_lock;
std::vector<Occurrence> occurrences;

// The data up to the end of the library's buffer: the header may claim more.
int remember(uint16_t device, uint32_t type, void *data, uint32_t length, uint64_t reserved) {
  const size_t size = std::min<size_t>(length, MU_PAL_DATAGRAM_MAX - sizeof(mu_pal_hdr_t));
  std::lock_guard<std::mutex> lock(occurrences_lock);
  occurrences.push_back(
      {device, type, {static_cast<const char *>(data), size}, length, reserved, static_cast<pid_t>(gettid())});
  return 0;
}

// Each test has its own process and a newly loaded driver.
class FreshDriver : public testing::Environment {
 public:
  void SetUp() override {
    ASSERT_TRUE(eventually([] {
      const int error = unload_driver();
      return error == 0 || error == ENOENT;
    }));
    load_driver();
    ASSERT_TRUE(eventually([] { return access(kControl, F_OK) == 0 && access(MU_PAL_DEVICE, F_OK) == 0; }));
  }
};

const testing::Environment *const fresh_driver = testing::AddGlobalTestEnvironment(new FreshDriver);

}  // namespace

bool eventually(const std::function<bool()> &holds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(kHangLimitS);
  while (!holds()) {
    if (std::chrono::steady_clock::now() > end) return false;
    usleep(5000);
  }
  return true;
}

int control(std::string_view commands) {
  const int file = open(kControl, O_WRONLY | O_CLOEXEC);
  if (file < 0) return errno;
  const ssize_t written = write(file, commands.data(), commands.size());
  const int error = written < 0 ? errno : 0;
  close(file);
  return error;
}

std::string file_text(const char *path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

std::string status() { return file_text(kStatus); }

std::string status_line(const std::string &beginning) {
  std::istringstream lines(status());
  for (std::string line; std::getline(lines, line);) {
    if (line.compare(0, beginning.size(), beginning) == 0) return line;
  }
  return "";
}

long status_number(const std::string &name) {
  const std::string line = status_line(name + ' ');
  return line.empty() ? -1 : atol(line.c_str() + name.size());
}

void load_driver() {
  const int file = open(kModule, O_RDONLY | O_CLOEXEC);
  syscall(SYS_finit_module, file, "", 0);
  close(file);
}

int unload_driver() { return syscall(SYS_delete_module, "tarn_platform", O_NONBLOCK) == 0 ? 0 : errno; }

void skip_kernel_messages() {
  char text[8192];
  const int file = open("/proc/kmsg", O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  while (read(file, text, sizeof text) > 0) continue;
  close(file);
}

std::string hex(std::string_view bytes) {
  std::string text;
  char digits[3];
  for (const char byte : bytes) {
    snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
    text += digits;
  }
  return text;
}

std::string datagram(uint16_t type, uint16_t device, uint16_t length, std::string_view data) {
  mu_pal_hdr_t header = {};
  header.length = length;
  header.event_type = type;
  header.device_id = device;
  return std::string(reinterpret_cast<const char *>(&header), sizeof header).append(data);
}

std::string kernel_log() {
  std::string text(static_cast<size_t>(std::max(0, klogctl(kBufferSize, nullptr, 0))), '\0');
  const int size = klogctl(kReadAll, text.data(), static_cast<int>(text.size()));
  text.resize(static_cast<size_t>(std::max(0, size)));
  return text;
}

bool is_bound(uint32_t port) {
  std::istringstream lines(file_text("/proc/net/netlink"));
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    std::string address;
    unsigned protocol = 0, of = 0;
    if (words >> address >> protocol >> of && protocol == MU_PAL_NETLINK && of == port) return true;
  }
  return false;
}

bool start_channel() {
  mup_plat_event_init();
  for (uint32_t type = 0; type < MUP_EVENT_NUM; type++) mu_event_register(0, type, remember);
  return eventually([] { return evt_dest != 0 && is_bound(static_cast<uint32_t>(evt_dest)); });
}

std::vector<Occurrence> received() {
  std::lock_guard<std::mutex> lock(occurrences_lock);
  return occurrences;
}

Child::Child(const std::function<void()> &work) {
  int ends[2];
  if (pipe(ends) != 0) abort();
  fflush(nullptr);
  id_ = fork();
  if (id_ == 0) {
    setpgid(0, 0);  // its own children end with it
    dup2(ends[1], STDOUT_FILENO);
    dup2(ends[1], STDERR_FILENO);
    close(ends[0]);
    close(ends[1]);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    work();
    fflush(nullptr);
    _exit(0);
  }
  setpgid(id_, id_);
  close(ends[1]);
  output_ = ends[0];
}

Child::~Child() {
  end();
  close(output_);
}

bool Child::says(const std::string &text) {
  char part[512];
  while (text_.find(text) == std::string::npos) {
    pollfd readable = {output_, POLLIN, 0};
    if (poll(&readable, 1, kHangLimitS * 1000) <= 0) return false;
    const ssize_t got = read(output_, part, sizeof part);
    if (got <= 0) return false;
    text_.append(part, static_cast<size_t>(got));
  }
  return true;
}

void Child::end() {
  if (id_ <= 0) return;
  kill(-id_, SIGKILL);
  waitpid(id_, nullptr, 0);
  id_ = 0;
}

void print_occurrences() {
  size_t printed = 0;
  while (true) {
    const std::vector<Occurrence> now = received();
    for (; printed < now.size(); printed++) {
      printf("got %u %u %u\n", now[printed].type, now[printed].device, now[printed].length);
    }
    usleep(5000);
  }
}

}  // namespace driver_test
