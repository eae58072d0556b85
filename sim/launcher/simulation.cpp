// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "simulation.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <climits>

#include "console.h"
#include "registry.h"
#include "tarn/platform.h"

namespace tarn_sim {

namespace {

// Commands between two looks at the descriptors: with a million commands at once, the daemon is still served.
constexpr std::size_t kMostInARound = 64;

}  // namespace

State::State(Loop *loop, const Root &root, Names *event_names)
    : kernel_log(loop, root.below(kKernelMessages), &failures),
      channel(loop, root.below(kNetlinkStandIn), &failures),
      collector(loop, root.below("/collector.log")),
      names(event_names) {}

Simulation::Simulation(Loop *loop, const Root &root, Names *names)
    : state_(loop, root, names),
      platform_device_(loop, root.below(kPlatformDevice), SOCK_SEQPACKET,
                       [this](Message *message) { return platform_request(*message); }),
      log_device_(loop, root.below(kLogDevice), SOCK_SEQPACKET,
                  [this](Message *message) { return log_request(*message); }) {}

bool Simulation::is_open() const {
  return state_.kernel_log.is_open() && state_.channel.is_open() && platform_device_.is_open() && log_device_.is_open();
}

void Simulation::start(Daemon *daemon, const std::vector<Line> &script) {
  state_.daemon = daemon;
  state_.start = mu_current_tick();
  state_.schedule.emplace(script, state_.start);
}

int Simulation::run_due() {
  const std::uint64_t now = mu_current_tick();
  const auto due = state_.schedule->take(now, {state_.channel.is_bound(), has_settings()}, kMostInARound);
  for (const Command &command : due) run(command);
  if (!due.empty()) return 0;
  for (const std::string &hint : hints_.take(now, waits())) report(hint);
  constexpr std::uint64_t kNever = UINT64_MAX;
  const std::uint64_t next = std::min(state_.schedule->next().value_or(kNever), hints_.next().value_or(kNever));
  if (next == kNever) return -1;
  return static_cast<int>(std::min<std::uint64_t>((next - now) * kTickMs, INT_MAX));
}

void Simulation::report_last_hints() {
  for (const std::string &hint : hints_.take_last(waits())) report(hint);
}

Waits Simulation::waits() const {
  return {.kernel_lines = state_.kernel_log.waits_for_first_reader(), .awaited = state_.schedule->awaited()};
}

void Simulation::take(const Line &line) {
  if (line.ticks > 0 || line.times != 1) return state_.schedule->add(line, mu_current_tick());
  run(line.command);
  state_.commands_done++;
}

void Simulation::run(const Command &command) {
  using Kind = Command::Kind;
  switch (command.kind) {
    case Kind::kEvent:
      return send_event(command.type, command.device, command.text);
    case Kind::kName:
      return;
    case Kind::kDriverLine:
      return state_.kernel_log.write_framed(state_.modules, command.module, command.level, command.text);
    case Kind::kKernelLine:
      return state_.kernel_log.write_plain(command.text);
    case Kind::kKernelBytes:
      return state_.kernel_log.write_bytes(command.text);
    case Kind::kDatagram:
      return state_.channel.send(command.text);
    case Kind::kFail:
      return state_.failures.set(command.call, command.count);
    case Kind::kDump:
      return dump_events();
    case Kind::kSay:
      return report(readable(command.text));
    case Kind::kStop:
      return state_.daemon->signal(SIGTERM);
  }
}

Response Simulation::platform_request(const Message &message) {
  if (message.request.ask == kOpen) return state_.failures.take(Call::kOpen) ? refuse(ENODEV) : Response();
  if (state_.failures.take(Call::kIoctl)) return refuse(EIO);
  return control_platform(message, &state_.channel);
}

Response Simulation::log_request(const Message &message) {
  if (message.request.ask == kOpen) return state_.failures.take(Call::kOpen) ? refuse(ENODEV) : Response();
  if (state_.failures.take(Call::kIoctl)) return refuse(EIO);
  return state_.modules.control(message);
}

}  // namespace tarn_sim
