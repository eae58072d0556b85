// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A device of the simulated kernel: receives the shim's requests and answers them. See sim/wire.h.
#ifndef TARN_SIM_LAUNCHER_SERVICE_H
#define TARN_SIM_LAUNCHER_SERVICE_H

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "listener.h"
#include "sim/wire.h"

namespace tarn_sim {

struct Message {
  Request request;
  std::string argument;
  Descriptor passed;  // if one was passed
};

struct Response {
  Reply reply = {0, 0};
  std::string argument = {};
  std::function<void(Descriptor)> take = {};  // gets the connection after the reply
};

Response refuse(int error);

// Receives one message without waiting. Returns nothing if there is none, or the connection has ended (`*is_over`).
std::optional<Message> receive(const Descriptor &connection, bool *is_over);
void respond(const Descriptor &connection, const Response &response);

class Service {
 public:
  using Handle = std::function<Response(Message *)>;

  Service(Loop *loop, const std::string &path, int type, Handle handle);
  ~Service();
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;

  bool is_open() const { return listener_.is_open(); }

 private:
  void begin(Descriptor client);
  void serve(int key);

  Loop *loop_;
  Handle handle_;
  std::map<int, Descriptor> connections_;
  Listener listener_;
};

}  // namespace tarn_sim

#endif
