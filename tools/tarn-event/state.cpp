#include "state.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

namespace tarn_event {

namespace {

using Json = nlohmann::json;

EventState event_of(const Json &json) {
  EventState event;
  json.at("type").get_to(event.type);
  json.at("name").get_to(event.name);
  json.at("count").get_to(event.count);
  json.at("suppression").get_to(event.suppression);
  json.at("suppressed").get_to(event.suppressed);
  json.at("suppressed_count").get_to(event.suppressed_count);
  json.at("threshold").get_to(event.threshold);
  json.at("period_ms").get_to(event.period_ms);
  return event;
}

ModuleState module_of(const Json &json) {
  ModuleState module;
  json.at("id").get_to(module.id);
  json.at("enabled").get_to(module.enabled);
  json.at("print").get_to(module.print);
  json.at("record").get_to(module.record);
  return module;
}

void take_channel(const Json &json, State *state) {
  json.at("bound").get_to(state->bound);
  json.at("port").get_to(state->port);
  json.at("destination").get_to(state->destination);
  json.at("sent").get_to(state->sent);
  json.at("lost").get_to(state->lost);
  json.at("no_listener").get_to(state->no_listener);
}

State state_of(const Json &json) {
  State state;
  json.at("time_ms").get_to(state.time_ms);
  json.at("daemon").at("pid").get_to(state.pid);
  json.at("daemon").at("running").get_to(state.running);
  take_channel(json.at("channel"), &state);
  const Json &kernel_log = json.at("kmsg");
  kernel_log.at("written").get_to(state.kernel_lines);
  kernel_log.at("withheld").get_to(state.kernel_withheld);
  kernel_log.at("lost").get_to(state.kernel_lost);
  json.at("script").at("pending").get_to(state.script_pending);
  json.at("script").at("done").get_to(state.script_done);
  for (const Json &event : json.at("events")) state.events.push_back(event_of(event));
  for (const Json &module : json.at("modules")) state.modules.push_back(module_of(module));
  return state;
}

}  // namespace

State parse_state(const std::string &json) {
  try {
    return state_of(Json::parse(json));
  } catch (const Json::exception &error) {
    throw std::runtime_error(std::string("the simulation's state is not understood: ") + error.what());
  }
}

}  // namespace tarn_event
