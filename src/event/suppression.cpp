// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Suppression: its callbacks, and the poll that ends its windows. mu_event_send begins it.

#include "internal.h"

using namespace tarn;
using namespace tarn::event;

namespace {

// Clears everything up to and including the list of subscribers.
//
// Deliberate: the type loses its list and never gets another; the order of attaching and registering makes no
// difference. Held by EventAttach.LosesTheListOfSubscribers and EventAttach.TheTypeAcceptsNoSubscribersAnyMore.
void reset(mu_event_rec &event) {
  store_relaxed(event.registered, u8{0});
  store_relaxed(event.suprs_en, u8{0});
  store_relaxed(event.suprs_s, u8{0});
  for (u32 mu_event_rec::*field :
       {&mu_event_rec::type, &mu_event_rec::count, &mu_event_rec::suprs_cnt, &mu_event_rec::threshold,
        &mu_event_rec::period_cnt, &mu_event_rec::period, &mu_event_rec::tick}) {
    store_relaxed(event.*field, u32{0});
  }
  store_relaxed(event.cb_list, static_cast<mu_list_t *>(nullptr));
}

// Deliberate: the poll that ends a suppression leaves `tick` and `period_cnt` at their limits. An occurrence before the
// next poll therefore begins a new suppression; without one, that poll begins a new window. Held by
// EventSuppression.RunsTheWorkedCaseToItsEnd and EventSuppression.AlternatesUnderASteadyStream.
void complete_period(mu_event_rec &event) {
  if (load_relaxed(event.suprs_s) != 0) {
    store_relaxed(event.suprs_s, u8{0});
    call_if_set(event.release_cb, event.cookie);
  } else {
    store_relaxed(event.period_cnt, u32{0});
    store_relaxed(event.tick, u32{0});
  }
}

}  // namespace

mu_status_t mu_event_suprs_attach(int type, mu_event_suprs_cb_t release_cb, mu_event_suprs_cb_t suppress_cb,
                                  uint64_t cookie) {
  if (!in_range_signed(type)) return -1;
  if ((release_cb == nullptr) != (suppress_cb == nullptr)) return -1;
  mu_event_rec &event = record_of(type);
  reset(event);
  store_relaxed(event.type, static_cast<u32>(type));
  store_relaxed(event.release_cb, release_cb);
  store_relaxed(event.suppress_cb, suppress_cb);
  store_relaxed(event.cookie, u64{cookie});
  return 0;
}

void mu_event_poll() {
  ScopedLock lock(glb_evt.lock);
  for (mu_event_rec &event : table()) {
    if (load_relaxed(event.suprs_en) == 0) continue;
    increment(event.tick);
    if (load_relaxed(event.tick) >= load_relaxed(event.period)) complete_period(event);
  }
}
