// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "connection.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace tarn_tools::event {

namespace {

constexpr time_t kPatienceS = 30;  // a simulation answers at once, unless its machine is very busy
constexpr const char kAccepted[] = "ok";
constexpr const char kRefused[] = "error: ";

int connect_to(const std::string &path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    errno = ENAMETOOLONG;
    return -1;
  }
  memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int sock = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (sock < 0) return -1;
  const timeval patience = {kPatienceS, 0};
  (void)setsockopt(sock, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  (void)setsockopt(sock, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  if (connect(sock, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) return sock;
  const int error = errno;
  (void)close(sock);
  errno = error;
  return -1;
}

std::string reason_of(int error) {
  if (error == ECONNREFUSED) return "no simulation runs there";
  if (error == EAGAIN) return "the simulation does not answer";
  if (error == EPIPE || error == ECONNRESET) return "the simulation has ended";
  return strerror(error);
}

}  // namespace

Connection::Connection(std::string path) : path_(std::move(path)), sock_(connect_to(path_)) {
  if (sock_ < 0) fail(reason_of(errno));
}

Connection::~Connection() { (void)close(sock_); }

void Connection::fail(const std::string &reason) const { throw NoSimulation(path_ + ": " + reason); }

void Connection::send(const std::string &bytes) const {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t size = ::send(sock_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) fail(reason_of(errno));
    sent += static_cast<std::size_t>(size);
  }
}

std::string Connection::receive_line() {
  std::size_t end;
  while ((end = received_.find('\n')) == std::string::npos) {
    std::array<char, 4096> bytes;
    const ssize_t size = recv(sock_, bytes.data(), bytes.size(), 0);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) fail(reason_of(errno));
    if (size == 0) fail("the simulation has ended");
    received_.append(bytes.data(), static_cast<std::size_t>(size));
  }
  std::string line = received_.substr(0, end);
  received_.erase(0, end + 1);
  return line;
}

std::vector<std::string> Connection::ask(const std::string &line) {
  send(line + "\n");
  std::vector<std::string> answer;
  while (true) {
    std::string part = receive_line();
    if (part == kAccepted) return answer;
    if (part.rfind(kRefused, 0) == 0) throw Refusal(part.substr(sizeof kRefused - 1));
    answer.push_back(std::move(part));
  }
}

}  // namespace tarn_tools::event
