// The signals that end a simulation, and the one that comes when the daemon has ended.
#ifndef TARN_SIM_LAUNCHER_SIGNALS_H
#define TARN_SIM_LAUNCHER_SIGNALS_H

#include <csignal>

#include "daemon.h"
#include "loop.h"

namespace tarn_sim {

class Signals {
 public:
  // Holds them from here on, in all threads to come; those that are ignored (nohup) stay so.
  explicit Signals(Loop *loop);
  ~Signals();
  Signals(const Signals &) = delete;
  Signals &operator=(const Signals &) = delete;

  // What was held before: the daemon's own.
  const sigset_t &before() const { return before_; }

  void pass_to(Daemon *daemon) { daemon_ = daemon; }

 private:
  void receive();
  void pass(int number, bool from_terminal);

  Loop *loop_;
  sigset_t before_ = {};
  Descriptor descriptor_;
  Daemon *daemon_ = nullptr;
  bool was_asked_ = false;
};

}  // namespace tarn_sim

#endif
