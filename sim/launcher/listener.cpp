// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "listener.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "console.h"

namespace tarn_sim {

namespace {

constexpr int kBacklog = 64;

sockaddr_un address_of(const std::string &path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

// Whether a process listens there; its socket may have another type than the probe.
bool is_alive(const sockaddr_un &address) {
  const Descriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  return connect(probe.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 || errno == EAGAIN ||
         errno == EPROTOTYPE;
}

}  // namespace

bool fits_socket_address(const std::string &path) { return path.size() <= kLongestSocketPath; }

Listener::Listener(Loop *loop, std::string path, int type, Accept accept)
    : loop_(loop),
      path_(std::move(path)),
      accept_(std::move(accept)),
      spare_(::open("/dev/null", O_RDONLY | O_CLOEXEC)) {
  if (!fits_socket_address(path_)) {
    report(path_ + ": too long for a socket's address: at most " + std::to_string(kLongestSocketPath) + " bytes");
  } else if (make_way()) {
    open(type);
  }
}

Listener::~Listener() {
  if (!socket_.is_open()) return;
  loop_->forget(socket_.get());
  (void)unlink(path_.c_str());
}

// Removes a socket that an earlier launcher left.
bool Listener::make_way() const {
  struct stat status = {};
  if (lstat(path_.c_str(), &status) != 0) return true;
  if (!S_ISSOCK(status.st_mode)) {
    report(path_ + ": is in the way: it is not a socket");
    return false;
  }
  if (is_alive(address_of(path_))) {
    report(path_ + ": somebody else listens there");
    return false;
  }
  (void)unlink(path_.c_str());  // a failure shows in bind
  return true;
}

void Listener::open(int type) {
  Descriptor made(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const sockaddr_un address = address_of(path_);
  if (bind(made.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
      listen(made.get(), kBacklog) != 0) {
    report(path_ + ": " + strerror(errno));
    return;
  }
  socket_ = std::move(made);
  loop_->watch(socket_.get(), POLLIN, [this] { accept_one(); });
}

void Listener::accept_one() {
  Descriptor client(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (client.is_open()) return accept_(std::move(client));
  if (errno != EMFILE && errno != ENFILE) return;
  report("no more descriptors: a connection is turned away");
  spare_.reset();
  Descriptor(accept(socket_.get(), nullptr, nullptr)).reset();
  spare_ = Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

}  // namespace tarn_sim
