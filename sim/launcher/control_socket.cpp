// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "control_socket.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>

#include "console.h"
#include "status.h"

namespace tarn_sim {

namespace {

constexpr char kOk[] = "ok\n";

std::string error(const std::string &reason) { return "error: " + reason + '\n'; }

bool is_status(std::string_view line) {
  Fault fault;
  const auto words = split(line, &fault);
  return words && words->size() == 1 && (*words)[0].text == "status" && !(*words)[0].is_quoted;
}

}  // namespace

Control::Control(Loop *loop, const std::string &path, Simulation *simulation)
    : loop_(loop),
      simulation_(simulation),
      listener_(loop, path, SOCK_STREAM, [this](Descriptor connection) { begin(std::move(connection)); }) {}

Control::~Control() {
  for (const auto &[key, client] : clients_) loop_->forget(key);
}

void Control::begin(Descriptor connection) {
  if (clients_.size() >= kMostClients) {
    const std::string reason = error("too many clients");
    (void)send(connection.get(), reason.data(), reason.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    return;
  }
  const int key = connection.get();
  clients_[key].connection = std::move(connection);
  loop_->watch(key, POLLIN, [this, key] { serve(key); });
}

// Reads from a client only when all its earlier lines are answered.
void Control::serve(int key) {
  Client &client = clients_.at(key);
  if (!client.has_ended && !client.has_line()) read(&client);
  answer_lines(&client);
  if (!write(&client) || client.is_done()) return end(key);
  const bool has_work = !client.out.empty() || client.has_line();
  loop_->change(key, static_cast<short>(has_work ? POLLOUT : POLLIN));
}

void Control::end(int key) {
  loop_->forget(key);
  clients_.erase(key);
}

void Control::read(Client *client) {
  char bytes[4096];
  const ssize_t size = recv(client->connection.get(), bytes, sizeof bytes, MSG_DONTWAIT);
  client->has_ended = size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR);
  if (size > 0) client->in.append(bytes, static_cast<std::size_t>(size));
  if (client->has_ended && !client->in.empty()) client->in += '\n';  // the last line may lack its end
}

void Control::answer_lines(Client *client) {
  for (int i = 0; i < kMostLines && client->has_line() && client->out.size() < kMostUnread; i++) {
    client->out += answer_line(client);
  }
  if (client->has_line() || client->in.size() <= kLongestLine) return;
  client->in.clear();
  client->skips = true;
}

std::string Control::answer_line(Client *client) {
  const std::size_t end = client->in.find('\n');
  const std::string line = client->in.substr(0, end);
  client->in.erase(0, end + 1);
  if (!client->skips && line.size() <= kLongestLine) return answer(line);
  client->skips = false;
  return error("the line is longer than " + std::to_string(kLongestLine) + " bytes");
}

// False when the client is gone.
bool Control::write(Client *client) {
  while (!client->out.empty()) {
    const ssize_t sent =
        send(client->connection.get(), client->out.data(), client->out.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) return errno == EAGAIN || errno == EINTR;
    client->out.erase(0, static_cast<std::size_t>(sent));
  }
  return true;
}

std::string Control::answer(std::string_view text) {
  if (is_status(text)) return status(simulation_->state()) + '\n' + kOk;
  bool is_blank = false;
  Fault fault;
  const auto line = parse_line(text, simulation_->state().names, &is_blank, &fault);
  if (is_blank) return kOk;
  if (!line) return error("column " + std::to_string(fault.column) + ": " + fault.reason);
  if (line->awaited != Awaited::kNothing) return error("column 1: only a script can await");
  report_detail("control: " + readable(text));
  simulation_->take(*line);
  return kOk;
}

}  // namespace tarn_sim
