// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A test's control of the driver, and its view of what the driver does.
#ifndef TARN_DRIVER_TESTS_PLATFORM_H
#define TARN_DRIVER_TESTS_PLATFORM_H

#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace driver_test {

// How long an effect may take on an emulated machine before a test fails.
constexpr int kHangLimitS = 60;

// Whether `holds` became true within the hang limit.
bool eventually(const std::function<bool()> &holds);

// ---- The driver ----------------------------------------------------------------------------------------------------

// Writes to the driver's control file, in one write. Returns 0 or the error number.
int control(std::string_view commands);

// The driver's status: all of it, the number after `name`, and the line that begins with `beginning`.
std::string status();
long status_number(const std::string &name);
std::string status_line(const std::string &beginning);

// Before each test the driver is loaded anew, so it has its initial state.
void load_driver();
// Returns 0 or the error number.
int unload_driver();

std::string hex(std::string_view bytes);

// A datagram's header, followed by `data`.
std::string datagram(uint16_t type, uint16_t device, uint16_t length, std::string_view data = {});

// ---- The kernel ----------------------------------------------------------------------------------------------------

std::string file_text(const char *path);

// The whole kernel log.
std::string kernel_log();

// Reads all unread messages of /proc/kmsg, so that a bridge does not see them.
void skip_kernel_messages();

// Whether a socket of the platform's netlink protocol is bound to this port.
bool is_bound(uint32_t port);

// ---- What the subscribers received ---------------------------------------------------------------------------------

struct Occurrence {
  uint16_t device;
  uint32_t type;
  std::string data;
  uint32_t length;
  uint64_t reserved;
  pid_t thread;
};

// Starts the channel of this process and subscribes to all types. False if it does not come up.
bool start_channel();

// Occurrences so far, in their order.
std::vector<Occurrence> received();

// ---- Processes -----------------------------------------------------------------------------------------------------

// A child of this process that does `work`. The test reads its output. The destructor ends it.
class Child {
 public:
  explicit Child(const std::function<void()> &work);
  ~Child();
  Child(const Child &) = delete;
  Child &operator=(const Child &) = delete;

  pid_t id() const { return id_; }
  // Waits for a line of its output that holds `text`.
  bool says(const std::string &text);
  void end();

 private:
  pid_t id_;
  int output_;
  std::string text_;
};

// In a child: prints each occurrence as "got TYPE DEVICE LENGTH" from now on, and never returns.
[[noreturn]] void print_occurrences();

}  // namespace driver_test

#endif
