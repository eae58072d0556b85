// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "registry.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "console.h"
#include "tarn/containers.h"
#include "tarn/platform.h"

namespace tarn_sim {

namespace {

static_assert(sizeof(mu_pal_hdr_t) == kPlatformHeader && offsetof(mu_pal_hdr_t, length) == kPlatformLengthAt);
static_assert(MU_PAL_PAYLOAD_MAX == kPlatformPayload);
static_assert((MU_PAL_IOCTL_BASE | MU_PAL_EVENT_CFG) == kConfigureEvents);
static_assert((MU_PAL_IOCTL_BASE | MU_PAL_EVENT_DEST) == kSetDestination);

// Set before the registry starts.
Channel *g_channel;
const Names *g_names;

bool g_has_settings;

// "3 (traffic)"
std::string label_of(std::uint64_t type) {
  const std::string name = g_names->of(static_cast<std::uint32_t>(type));
  return std::to_string(type) + (name.empty() ? "" : " (" + name + ')');
}

// The registry's send hook, called by send_event.
int transmit(std::uint16_t device, std::uint32_t type, void *data, std::uint32_t length) {
  mu_pal_hdr_t header = {};
  header.length = static_cast<std::uint16_t>(length);
  header.event_type = static_cast<std::uint16_t>(type);
  header.device_id = device;
  std::string datagram(sizeof header, '\0');
  memcpy(datagram.data(), &header, sizeof header);
  datagram.append(static_cast<const char *>(data), length);
  report_detail("event " + label_of(type) + ", device " + std::to_string(device) + ", " + std::to_string(length) +
                " bytes");
  g_channel->send(datagram);
  return 0;
}

void report_suppressed(std::uint64_t type) { report_detail("event " + label_of(type) + ": suppression begins"); }

// Called on the timer thread, or when the configuration is set.
void report_released(std::uint64_t type) { report_detail("event " + label_of(type) + ": released"); }

// Whether the message's type may be used: some functions of the registry do not check a negative type.
bool is_sound(const mu_event_msg_t &message) {
  if (message.op > MU_EVENT_OP_DUMP) return false;
  const bool has_type = message.op != MU_EVENT_OP_COUNTER_CLEAR_ALL && message.op != MU_EVENT_OP_DUMP;
  return !has_type || message.type < static_cast<std::uint32_t>(glb_evt.max_event_num);
}

Response configure(const mu_pal_hdr_t &header, const Message &request) {
  mu_event_msg_t message;
  if (header.length != sizeof message || request.argument.size() != sizeof header + sizeof message)
    return refuse(EINVAL);
  memcpy(&message, request.argument.data() + sizeof header, sizeof message);
  if (!is_sound(message)) return refuse(EINVAL);
  constexpr const char *kOperations[] = {"counter get", "counter clear", "counters clear", "set", "get", "dump"};
  report_detail(std::string("events: ") + kOperations[message.op] + ", type " + label_of(message.type));
  (void)event_cfg_set(header.device_id, &message);  // -1 for a counter that was read from the table
  (void)fflush(stdout);                             // the dump
  g_has_settings = g_has_settings || message.op == MU_EVENT_OP_SET;
  Response response = {.argument = request.argument};
  memcpy(response.argument.data() + sizeof header, &message, sizeof message);
  return response;
}

}  // namespace

bool start_registry(const Names &names, Channel *channel) {
  g_channel = channel;
  g_names = &names;
  const std::uint32_t types = names.types();
  if (mu_event_init(static_cast<int>(types), transmit, nullptr) != 0) return false;
  for (std::uint32_t type = 0; type < types; type++) {
    mu_list_destory(glb_evt.events[type].cb_list);  // attaching would leak it; there are no subscribers here
    (void)mu_event_suprs_attach(static_cast<int>(type), report_released, report_suppressed, type);  // in range
  }
  return true;
}

void send_event(std::uint32_t type, std::uint16_t device, std::string data) {
  const mu_status_t status =
      mu_event_send(device, static_cast<int>(type), data.data(), static_cast<std::uint32_t>(data.size()));
  if (status != 0) report_detail("event " + label_of(type) + ": suppressed");
}

Response control_platform(const Message &message, Channel *channel) {
  mu_pal_hdr_t header;
  if (message.argument.size() < sizeof header) return refuse(EINVAL);
  memcpy(&header, message.argument.data(), sizeof header);
  if (message.request.code == kConfigureEvents) return configure(header, message);
  if (message.request.code != kSetDestination) return refuse(EINVAL);
  channel->set_destination(header.destination);
  return {.argument = message.argument};
}

bool has_settings() { return g_has_settings; }

void dump_events() {
  mu_event_dump();
  (void)fflush(stdout);
}

std::vector<mu_event_rec> event_records() {
  (void)mu_mutex_lock(glb_evt.lock);
  std::vector<mu_event_rec> records(glb_evt.events, glb_evt.events + glb_evt.max_event_num);
  (void)mu_mutex_unlock(glb_evt.lock);
  return records;
}

}  // namespace tarn_sim
