// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "signals.h"

#include <poll.h>
#include <sys/signalfd.h>

#include <cstring>

#include "console.h"
#include "tarn/platform.h"

namespace tarn_sim {

namespace {

bool is_ignored(int number) {
  struct sigaction action = {};
  return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

Signals::Signals(Loop *loop, std::uint64_t grace_ticks) : loop_(loop), grace_ticks_(grace_ticks) {
  sigset_t held;
  (void)sigemptyset(&held);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    if (!is_ignored(number)) (void)sigaddset(&held, number);
  }
  (void)std::signal(SIGCHLD, SIG_DFL);  // if it were ignored, the daemon's end would not be seen
  (void)std::signal(SIGPIPE, SIG_IGN);
  (void)sigaddset(&held, SIGCHLD);
  (void)sigprocmask(SIG_BLOCK, &held, &before_);
  descriptor_ = Descriptor(signalfd(-1, &held, SFD_CLOEXEC | SFD_NONBLOCK));
  loop_->watch(descriptor_.get(), POLLIN, [this] { receive(); });
}

Signals::~Signals() { loop_->forget(descriptor_.get()); }

void Signals::receive() {
  signalfd_siginfo info;
  while (read(descriptor_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    if (info.ssi_signo == SIGCHLD) {
      daemon_->look();
    } else {
      pass(static_cast<int>(info.ssi_signo), info.ssi_code == SI_KERNEL);
    }
  }
}

// A signal of the terminal reaches the whole foreground group, so it is not passed on within the group.
void Signals::pass(int number, bool from_terminal) {
  const std::uint64_t now = mu_current_tick();
  if (first_tick_ && now - *first_tick_ < grace_ticks_) {
    // timeout(1) sends its signal twice: to its child, and then to the group.
    return report_detail("a signal within the grace time: the daemon has had one");
  }
  if (first_tick_) {
    report("again: the daemon is killed");
    return daemon_->signal(SIGKILL);
  }
  first_tick_ = now;
  report_detail(std::string("the daemon gets ") + strsignal(number));
  if (!from_terminal || getpgid(daemon_->pid()) != getpgrp()) daemon_->signal(number);
}

}  // namespace tarn_sim
