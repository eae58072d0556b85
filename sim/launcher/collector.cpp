// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "collector.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "console.h"
#include "namespace.h"
#include "sim/wire.h"
#include "tarn/log.h"

namespace tarn_sim {

namespace {

static_assert(kCollectorPort == MUP_LOG_SERVER_PORT);

// The line for a datagram, without the line ends at its end.
std::string line_of(std::string_view datagram) {
  while (!datagram.empty() && (datagram.back() == '\n' || datagram.back() == '\r')) datagram.remove_suffix(1);
  return readable(datagram);
}

}  // namespace

Collector::~Collector() {
  if (socket_.is_open()) loop_->forget(socket_.get());
}

bool Collector::start(std::uint16_t own_port, bool may_use_namespace) {
  if (own_port != 0) {
    how_ = How::kOwn;
    port_ = own_port;
    report("collector: yours, on port " + std::to_string(port_) + " of the loopback interface");
    return true;
  }
  const bool is_apart = may_use_namespace && enter_own_network();
  how_ = is_apart ? How::kNamespace : How::kShim;
  if (!open(is_apart ? INADDR_ANY : INADDR_LOOPBACK, is_apart ? kCollectorPort : 0)) return false;
  const std::string port_text = std::to_string(kCollectorPort);
  const std::string log = ", written to " + log_path_;
  if (is_apart) {
    report("collector: port " + port_text + " of every address, in a network of the simulation's own" + log);
  } else {
    report("collector: port " + std::to_string(port_) + " of the loopback interface stands for port " + port_text +
           log);
  }
  return true;
}

bool Collector::open(std::uint32_t address, std::uint16_t port) {
  socket_ = Descriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_in bound = {};
  bound.sin_family = AF_INET;
  bound.sin_addr.s_addr = htonl(address);
  bound.sin_port = htons(port);
  socklen_t size = sizeof bound;
  log_.reset(fopen(log_path_.c_str(), "ae"));
  if (!log_ || bind(socket_.get(), reinterpret_cast<const sockaddr *>(&bound), size) != 0 ||
      getsockname(socket_.get(), reinterpret_cast<sockaddr *>(&bound), &size) != 0) {
    report("collector: " + std::string(strerror(errno)));
    return false;
  }
  port_ = ntohs(bound.sin_port);
  loop_->watch(socket_.get(), POLLIN, [this] { drain(); });
  return true;
}

void Collector::drain() {
  constexpr int kMostInARound = 256;
  char datagram[65536];
  ssize_t size = 0;
  for (int i = 0; i < kMostInARound && socket_.is_open(); i++) {
    size = recv(socket_.get(), datagram, sizeof datagram, MSG_DONTWAIT);
    if (size < 0) break;
    received_++;
    const std::string line = line_of({datagram, static_cast<std::size_t>(size)});
    report_detail("collector: " + line);
    (void)fprintf(log_.get(), "%s\n", line.c_str());
  }
  if (log_) (void)fflush(log_.get());  // a full disk does not end the simulation
}

const char *Collector::how_name() const {
  constexpr const char *kNames[] = {"namespace", "shim", "own"};
  return kNames[static_cast<int>(how_)];
}

std::string Collector::shim_setting() const {
  return how_ == How::kNamespace ? kCollectorIsThere : std::to_string(port_);
}

}  // namespace tarn_sim
