// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "event_channel.h"

#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "console.h"

namespace tarn_sim {

namespace {

// Ports that are not the id of a process, and the one from which the kernel searches downwards.
constexpr std::uint32_t kFirstNoProcess = 0x80000000U;
constexpr std::uint32_t kFirstTried = 0xFFFFEFFFU;

}  // namespace

Channel::Channel(Loop *loop, const std::string &path, Failures *failures)
    : loop_(loop),
      failures_(failures),
      service_(loop, path, SOCK_SEQPACKET, [this](Message *message) { return open(message); }) {}

Channel::~Channel() {
  for (const auto &[key, socket] : sockets_) loop_->forget(key);
}

Response Channel::open(Message *message) {
  if (message->request.ask != kOpen || !message->passed.is_open()) return refuse(EINVAL);
  if (failures_->take(Call::kSocket)) return refuse(EPROTONOSUPPORT);
  const int key = message->passed.get();
  sockets_[key] = {std::move(message->passed), std::nullopt, false};
  loop_->watch(key, POLLIN, [this, key] { serve(key); });
  return {};
}

// Handles only binds: datagrams that a program sends to the driver are dropped.
void Channel::serve(int key) {
  Socket &socket = sockets_.at(key);
  bool is_over = false;
  const auto message = receive(socket.end, &is_over);
  if (message && message->request.ask == kBind && message->passed.is_open()) {
    respond(message->passed, {.reply = bind(&socket, *message)});
  }
  if (!is_over) return;
  if (socket.port) report_detail("channel: port " + std::to_string(*socket.port) + " is closed");
  loop_->forget(key);
  sockets_.erase(key);
}

// As in the kernel: a port of another socket is refused, and a bound socket keeps its port.
Reply Channel::bind(Socket *socket, const Message &message) {
  sockaddr_nl address = {};
  if (message.request.code < sizeof address || message.argument.size() < sizeof address) return {-1, EINVAL};
  memcpy(&address, message.argument.data(), sizeof address);
  if (address.nl_family != AF_NETLINK) return {-1, EINVAL};
  if (failures_->take(Call::kBind)) return {-1, EADDRINUSE};
  const std::uint32_t port = address.nl_pid == 0 ? choose_port(*socket) : address.nl_pid;
  if (socket->port) return *socket->port == address.nl_pid || address.nl_pid == 0 ? Reply{0, 0} : Reply{-1, EINVAL};
  if (is_taken(port)) {
    report_taken(port);
    return {-1, EADDRINUSE};
  }
  socket->port = port;
  report_detail("channel: bound to port " + std::to_string(port));
  return {0, 0};
}

// Whether the daemon has closed it. The loop may not have handled this yet.
bool Channel::is_closed(const Socket &socket) {
  pollfd end = {socket.end.get(), 0, 0};
  return poll(&end, 1, 0) > 0;
}

bool Channel::is_taken(std::uint32_t port) const {
  for (const auto &[key, socket] : sockets_) {
    if (socket.port == port && !is_closed(socket)) return true;
  }
  return false;
}

void Channel::report_taken(std::uint32_t port) {
  if (has_said_taken_) return;
  has_said_taken_ = true;
  report("hint: a second event channel wants port " + std::to_string(port) +
         ". The port is the id of the parent process, so daemons of one parent want the same one: run each under a "
         "tarn-sim of its own, with another --root");
}

// The port for a bind to 0: the id of the process that made the socket, else a free number that is not a process id.
std::uint32_t Channel::choose_port(const Socket &socket) const {
  ucred creator = {};
  socklen_t size = sizeof creator;
  (void)getsockopt(socket.end.get(), SOL_SOCKET, SO_PEERCRED, &creator, &size);
  auto port = static_cast<std::uint32_t>(creator.pid);
  while (is_taken(port)) port = port < kFirstNoProcess ? kFirstTried : port - 1;
  return port;
}

void Channel::set_destination(std::uint32_t port) {
  has_destination_ = true;
  destination_ = port;
  report_detail("channel: events go to port " + std::to_string(port));
}

Channel::Socket *Channel::listener() {
  if (!has_destination_) return nullptr;
  for (auto &[key, socket] : sockets_) {
    if (socket.port == destination_ && !is_closed(socket)) return &socket;
  }
  return nullptr;
}

bool Channel::is_bound() const { return has_destination_ && is_taken(destination_); }

void Channel::send(std::string_view datagram) {
  Socket *socket = listener();
  if (socket == nullptr) {
    no_listener_++;
    report_detail("channel: nobody is bound to the destination: the datagram is dropped");
    return;
  }
  const ssize_t sent = ::send(socket->end.get(), datagram.data(), datagram.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent >= 0) {
    sent_++;
    socket->is_full = false;
    return;
  }
  lost_++;
  if (!socket->is_full)
    report(std::string("channel: a datagram is lost, the socket takes no more: ") + strerror(errno));
  socket->is_full = true;
}

}  // namespace tarn_sim
