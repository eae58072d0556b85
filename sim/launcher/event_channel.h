// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The event channel: the netlink sockets of the daemon, and the datagrams that the simulated driver sends to them.
#ifndef TARN_SIM_LAUNCHER_EVENT_CHANNEL_H
#define TARN_SIM_LAUNCHER_EVENT_CHANNEL_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "failures.h"
#include "service.h"

namespace tarn_sim {

class Channel {
 public:
  Channel(Loop *loop, const std::string &path, Failures *failures);
  ~Channel();
  Channel(const Channel &) = delete;
  Channel &operator=(const Channel &) = delete;

  bool is_open() const { return service_.is_open(); }

  void set_destination(std::uint32_t port);

  // Sends the bytes to the socket that is bound to the destination; never waits.
  void send(std::string_view datagram);

  // Whether a socket is bound to the destination.
  bool is_bound() const;
  std::uint32_t port() const { return is_bound() ? destination_ : 0; }
  std::uint32_t destination() const { return destination_; }
  std::uint64_t sent() const { return sent_; }
  std::uint64_t lost() const { return lost_; }
  std::uint64_t no_listener() const { return no_listener_; }

 private:
  struct Socket {
    Descriptor end;
    std::optional<std::uint32_t> port;
    bool is_full = false;
  };

  Response open(Message *message);
  void serve(int key);
  Reply bind(Socket *socket, const Message &message);
  static bool is_closed(const Socket &socket);
  bool is_taken(std::uint32_t port) const;
  void report_taken(std::uint32_t port);
  std::uint32_t choose_port(const Socket &socket) const;
  Socket *listener();

  Loop *loop_;
  Failures *failures_;
  std::map<int, Socket> sockets_;
  bool has_destination_ = false;
  std::uint32_t destination_ = 0;
  std::uint64_t sent_ = 0;
  std::uint64_t lost_ = 0;
  std::uint64_t no_listener_ = 0;
  bool has_said_taken_ = false;
  Service service_;
};

}  // namespace tarn_sim

#endif
