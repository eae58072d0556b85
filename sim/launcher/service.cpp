// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "service.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace tarn_sim {

namespace {

constexpr std::size_t kLongestMessage = sizeof(Request) + kPlatformArgument;

// Returns the first descriptor that was passed, and closes the others: all of them belong to this process now.
Descriptor passed_in(msghdr *message) {
  Descriptor first;
  for (cmsghdr *control = CMSG_FIRSTHDR(message); control != nullptr; control = CMSG_NXTHDR(message, control)) {
    if (control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_RIGHTS) continue;
    for (std::size_t at = 0; CMSG_LEN(at + sizeof(int)) <= control->cmsg_len; at += sizeof(int)) {
      int number = -1;
      memcpy(&number, CMSG_DATA(control) + at, sizeof number);
      Descriptor passed(number);
      if (!first.is_open()) first = std::move(passed);
    }
  }
  return first;
}

}  // namespace

Response refuse(int error) { return {.reply = {-1, error}}; }

std::optional<Message> receive(const Descriptor &connection, bool *is_over) {
  char bytes[kLongestMessage];
  iovec part = {bytes, sizeof bytes};
  alignas(cmsghdr) char room[CMSG_SPACE(sizeof(int))];
  msghdr header = {};
  header.msg_iov = &part;
  header.msg_iovlen = 1;
  header.msg_control = room;
  header.msg_controllen = sizeof room;
  const ssize_t size = recvmsg(connection.get(), &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  *is_over = size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR);
  if (size < 0) return std::nullopt;
  Message message = {{}, {}, passed_in(&header)};
  if (size < static_cast<ssize_t>(sizeof(Request))) return std::nullopt;
  memcpy(&message.request, bytes, sizeof message.request);
  message.argument.assign(bytes + sizeof(Request), static_cast<std::size_t>(size) - sizeof(Request));
  return message;
}

void respond(const Descriptor &connection, const Response &response) {
  std::string bytes(sizeof response.reply, '\0');
  memcpy(bytes.data(), &response.reply, sizeof response.reply);
  bytes += response.argument;
  // If this fails, the client has gone.
  (void)send(connection.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
}

Service::Service(Loop *loop, const std::string &path, int type, Handle handle)
    : loop_(loop),
      handle_(std::move(handle)),
      listener_(loop, path, type, [this](Descriptor client) { begin(std::move(client)); }) {}

Service::~Service() {
  for (const auto &[key, connection] : connections_) loop_->forget(key);
}

void Service::begin(Descriptor client) {
  const int key = client.get();
  connections_[key] = std::move(client);
  loop_->watch(key, POLLIN, [this, key] { serve(key); });
}

void Service::serve(int key) {
  bool is_over = false;
  auto message = receive(connections_.at(key), &is_over);
  Response response;
  if (message) {
    response = handle_(&*message);
    respond(connections_.at(key), response);
  }
  if (!is_over && !response.take) return;
  loop_->forget(key);
  Descriptor connection = std::move(connections_.at(key));
  connections_.erase(key);
  if (response.take) response.take(std::move(connection));
}

}  // namespace tarn_sim
