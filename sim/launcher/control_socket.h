// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The control socket: lines of the script's language from clients, each answered by "ok" or "error: REASON".
#ifndef TARN_SIM_LAUNCHER_CONTROL_SOCKET_H
#define TARN_SIM_LAUNCHER_CONTROL_SOCKET_H

#include <map>
#include <string>
#include <string_view>

#include "listener.h"
#include "simulation.h"

namespace tarn_sim {

class Control {
 public:
  static constexpr std::size_t kMostClients = 32;
  static constexpr std::size_t kLongestLine = 65536;
  // A client with so many bytes of unread answers gets no more until it reads.
  static constexpr std::size_t kMostUnread = 65536;
  // Lines of one client before the others have their turn.
  static constexpr int kMostLines = 32;

  Control(Loop *loop, const std::string &path, Simulation *simulation);
  ~Control();
  Control(const Control &) = delete;
  Control &operator=(const Control &) = delete;

  bool is_open() const { return listener_.is_open(); }

 private:
  struct Client {
    Descriptor connection;
    std::string in = {};
    std::string out = {};
    bool skips = false;      // the rest of a line that was too long
    bool has_ended = false;  // it sends no more

    bool has_line() const { return in.find('\n') != std::string::npos; }
    bool is_done() const { return has_ended && out.empty() && !has_line(); }
  };

  void begin(Descriptor connection);
  void serve(int key);
  void end(int key);
  static void read(Client *client);
  void answer_lines(Client *client);
  std::string answer_line(Client *client);
  static bool write(Client *client);
  std::string answer(std::string_view line);

  Loop *loop_;
  Simulation *simulation_;
  std::map<int, Client> clients_;
  Listener listener_;
};

}  // namespace tarn_sim

#endif
