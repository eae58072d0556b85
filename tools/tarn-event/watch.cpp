// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "watch.h"

#include <poll.h>
#include <unistd.h>

#include <optional>

#include "common/output.h"
#include "common/status.h"
#include "state.h"
#include "table.h"

namespace tarn_tools::event {

namespace {

constexpr char kHomeAndClear[] = "\033[H\033[2J";

std::string ask_state(Connection *connection) {
  const auto answer = connection->ask("status");
  return answer.empty() ? "" : answer.front();
}

// Waits for the interval. False if standard output is a pipe that nobody reads any more.
bool wait(int interval_ms) {
  pollfd output = {STDOUT_FILENO, 0, 0};
  return poll(&output, 1, interval_ms) <= 0 || (output.revents & (POLLERR | POLLHUP)) == 0;
}

class Watch {
 public:
  explicit Watch(const Options &options) : options_(options), clears_(isatty(STDOUT_FILENO) != 0 && !options.json) {}

  void look(Connection *connection) {
    const std::string json = ask_state(connection);
    if (options_.json) return print(json + "\n");
    State now = parse_state(json);
    const std::string text = table(now, before_ ? &*before_ : nullptr, options_.all);
    print((clears_ ? kHomeAndClear : before_ ? "\n" : "") + text);
    before_ = std::move(now);
  }

 private:
  const Options &options_;
  const bool clears_;
  std::optional<State> before_;
};

}  // namespace

int watch(Connection *connection, const Options &options) {
  Watch watch(options);
  for (unsigned long look = 1;; look++) {
    try {
      watch.look(connection);
    } catch (const NoSimulation &gone) {
      if (look == 1) throw;
      report(gone.what());  // the simulation has ended, which is normal
      return kDone;
    }
    flush_output();
    if (look == options.looks || !wait(options.interval_ms)) return kDone;
  }
}

int show(Connection *connection, const Options &options) {
  const std::string json = ask_state(connection);
  const State now = parse_state(json);
  print(options.json ? json + "\n" : table(now, nullptr, options.all));
  return now.bound ? kDone : kNotSo;
}

}  // namespace tarn_tools::event
