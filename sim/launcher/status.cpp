// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "status.h"

#include <nlohmann/json.hpp>

#include "registry.h"
#include "tarn/platform.h"

namespace tarn_sim {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::uint32_t kPeriodUnitMs = 10;

Json events(const Names &names) {
  Json list = Json::array();
  std::uint32_t type = 0;
  for (const mu_event_rec &event : event_records()) {
    list.push_back({{"type", type},
                    {"name", names.of(type)},
                    {"count", event.count},
                    {"suppression", event.suprs_en != 0},
                    {"suppressed", event.suprs_s != 0},
                    {"suppressed_count", event.suprs_cnt},
                    {"threshold", event.threshold},
                    {"period_ms", event.period * kPeriodUnitMs}});
    type++;
  }
  return list;
}

// Those that the daemon has set.
Json modules(const Modules &modules) {
  Json list = Json::array();
  unsigned id = 0;
  for (const Module &module : modules.all()) {
    if (module.was_set) {
      list.push_back({{"id", id}, {"enabled", module.is_enabled}, {"print", module.print}, {"record", module.record}});
    }
    id++;
  }
  return list;
}

Json failures(const Failures &failures) {
  Json left = Json::object();
  for (std::size_t call = 0; call < kCalls; call++) left[kCallNames[call]] = failures.left(static_cast<Call>(call));
  return left;
}

}  // namespace

std::string status(const State &it) {
  const Json all = {
      {"time_ms", (mu_current_tick() - it.start) * kTickMs},
      {"daemon", {{"pid", it.daemon->pid()}, {"running", it.daemon->is_running()}}},
      {"channel",
       {{"bound", it.channel.is_bound()},
        {"port", it.channel.port()},
        {"destination", it.channel.destination()},
        {"sent", it.channel.sent()},
        {"lost", it.channel.lost()},
        {"no_listener", it.channel.no_listener()}}},
      {"events", events(*it.names)},
      {"modules", modules(it.modules)},
      {"kmsg",
       {{"written", it.kernel_log.written()}, {"withheld", it.kernel_log.withheld()}, {"lost", it.kernel_log.lost()}}},
      {"collector",
       {{"how", it.collector.how_name()}, {"port", it.collector.port()}, {"received", it.collector.received()}}},
      {"script", {{"pending", it.schedule->pending()}, {"done", it.schedule->done() + it.commands_done}}},
      {"failures", failures(it.failures)},
  };
  return all.dump();
}

}  // namespace tarn_sim
