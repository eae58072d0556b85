// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The driver's registry of events: the library's registry in this process. Its send hook sends the datagrams.
#ifndef TARN_SIM_LAUNCHER_REGISTRY_H
#define TARN_SIM_LAUNCHER_REGISTRY_H

#include <cstdint>
#include <string>
#include <vector>

#include "event_channel.h"
#include "names.h"
#include "service.h"
#include "tarn/event.h"

namespace tarn_sim {

// Starts it, with the number of types in `names`; from here on it has a thread. Once per process. The names and the
// channel must outlive it. False if memory runs out.
bool start_registry(const Names &names, Channel *channel);

// One occurrence of an event; suppressed or sent.
void send_event(std::uint32_t type, std::uint16_t device, std::string data);

// Carries out an ioctl of the platform's device.
Response control_platform(const Message &message, Channel *channel);

// Whether the daemon has set how an event is suppressed.
bool has_settings();

// The table on standard output.
void dump_events();

// A copy, made under the registry's lock.
std::vector<mu_event_rec> event_records();

}  // namespace tarn_sim

#endif
