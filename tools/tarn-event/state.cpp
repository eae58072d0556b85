// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "state.h"

#include <limits>

#include "common/json.h"

namespace tarn_tools::event {

namespace {

const Json &member(const Json &json, const char *name) {
  const Json *found = json.find(name);
  if (found == nullptr) throw Failure(std::string("no \"") + name + "\"");
  return *found;
}

[[noreturn]] void refuse_member(const char *name) { throw Failure(std::string("\"") + name + "\" has another type"); }

template <typename Number>
void take_number(const Json &json, const char *name, Number *number) {
  const std::uint64_t *value = member(json, name).number();
  if (value == nullptr || *value > static_cast<std::uint64_t>(std::numeric_limits<Number>::max())) refuse_member(name);
  *number = static_cast<Number>(*value);
}

void take_bool(const Json &json, const char *name, bool *truth) {
  const bool *value = member(json, name).boolean();
  if (value == nullptr) refuse_member(name);
  *truth = *value;
}

void take_text(const Json &json, const char *name, std::string *text) {
  const std::string *value = member(json, name).text();
  if (value == nullptr) refuse_member(name);
  *text = *value;
}

const Json::Array &items(const Json &json, const char *name) {
  const Json::Array *value = member(json, name).items();
  if (value == nullptr) refuse_member(name);
  return *value;
}

EventState event_of(const Json &json) {
  EventState event;
  take_number(json, "type", &event.type);
  take_text(json, "name", &event.name);
  take_number(json, "count", &event.count);
  take_bool(json, "suppression", &event.suppression);
  take_bool(json, "suppressed", &event.suppressed);
  take_number(json, "suppressed_count", &event.suppressed_count);
  take_number(json, "threshold", &event.threshold);
  take_number(json, "period_ms", &event.period_ms);
  return event;
}

ModuleState module_of(const Json &json) {
  ModuleState module;
  take_number(json, "id", &module.id);
  take_bool(json, "enabled", &module.enabled);
  take_number(json, "print", &module.print);
  take_number(json, "record", &module.record);
  return module;
}

void take_channel(const Json &json, State *state) {
  take_bool(json, "bound", &state->bound);
  take_number(json, "port", &state->port);
  take_number(json, "destination", &state->destination);
  take_number(json, "sent", &state->sent);
  take_number(json, "lost", &state->lost);
  take_number(json, "no_listener", &state->no_listener);
}

State state_of(const Json &json) {
  State state;
  take_number(json, "time_ms", &state.time_ms);
  take_number(member(json, "daemon"), "pid", &state.pid);
  take_bool(member(json, "daemon"), "running", &state.running);
  take_channel(member(json, "channel"), &state);
  const Json &kernel_log = member(json, "kmsg");
  take_number(kernel_log, "written", &state.kernel_lines);
  take_number(kernel_log, "withheld", &state.kernel_withheld);
  take_number(kernel_log, "lost", &state.kernel_lost);
  take_number(member(json, "script"), "pending", &state.script_pending);
  take_number(member(json, "script"), "done", &state.script_done);
  for (const Json &event : items(json, "events")) state.events.push_back(event_of(event));
  for (const Json &module : items(json, "modules")) state.modules.push_back(module_of(module));
  return state;
}

}  // namespace

State parse_state(const std::string &json) {
  try {
    return state_of(parse_json(json));
  } catch (const Failure &error) {
    throw Failure(std::string("the simulation's state is not understood: ") + error.what());
  }
}

}  // namespace tarn_tools::event
