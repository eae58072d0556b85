// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "kernel_log.h"

#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "console.h"

namespace tarn_sim {

namespace {

constexpr unsigned kPlainPriority = 6;  // "info"
constexpr int kSocketRoom = 4096;       // few lines wait in the socket of a slow reader: the others get the rest

std::int64_t now_us() {
  timespec now = {};
  (void)clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

// The log's levels count from 1, the kernel's priorities from 0. Level 0, "Off", has no priority: it gets 0.
unsigned priority_of(std::uint8_t level) { return level == 0 ? 0 : level - 1U; }

}  // namespace

KernelLog::KernelLog(Loop *loop, const std::string &path, Failures *failures)
    : loop_(loop),
      failures_(failures),
      start_us_(now_us()),
      service_(loop, path, SOCK_STREAM, [this](Message *) { return open(); }) {}

KernelLog::~KernelLog() {
  for (const Reader &reader : readers_) loop_->forget(reader.connection.get());
}

Response KernelLog::open() {
  if (failures_->take(Call::kOpen)) return refuse(ENODEV);
  return {.take = [this](Descriptor connection) { add_reader(std::move(connection)); }};
}

void KernelLog::add_reader(Descriptor connection) {
  report_detail("kmsg: a reader comes");
  had_reader_ = true;
  const int key = connection.get();
  (void)setsockopt(key, SOL_SOCKET, SO_SNDBUF, &kSocketRoom, sizeof kSocketRoom);
  readers_.push_back({std::move(connection), {}});
  loop_->watch(key, POLLIN, [this, key] { serve(key); });
  hand_out();
}

void KernelLog::write_framed(const Modules &modules, std::uint8_t module, std::uint8_t level, const std::string &text) {
  if (!modules.passes(module, level)) {
    withheld_++;
    report_detail("kmsg: withheld, module " + std::to_string(module) + " level " + std::to_string(level) + ": " +
                  readable(text));
    return;
  }
  char frame[16];
  (void)snprintf(frame, sizeof frame, "<jxlog-%02u:%u:", module % 100U, level % 10U);
  write_lines(priority_of(level), frame + text + "<jxlog>");
}

void KernelLog::write_plain(const std::string &text) { write_lines(kPlainPriority, text); }

// As in printk, each line of the text gets a prefix.
void KernelLog::write_lines(unsigned priority, const std::string &text) {
  const std::int64_t since = now_us() - start_us_;
  char prefix[48];
  (void)snprintf(prefix, sizeof prefix, "<%u>[%5lu.%06lu] ", priority, static_cast<unsigned long>(since / 1000000),
                 static_cast<unsigned long>(since % 1000000));
  std::size_t begin = 0;
  do {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    write_bytes(prefix + text.substr(begin, end - begin) + '\n');
    begin = end + 1;
  } while (begin < text.size());
}

void KernelLog::write_bytes(std::string bytes) {
  if (bytes.empty()) return;
  report_detail("kmsg: " + readable(bytes));
  written_++;
  bytes_ += bytes.size();
  lines_.push_back(std::move(bytes));
  hand_out();
  make_room();
}

void KernelLog::make_room() {
  while (bytes_ > kRoom) {
    bytes_ -= lines_.front().size();
    lines_.pop_front();
    lost_++;
    if (!has_said_lost_) report("kmsg: nobody reads: the oldest lines are lost");
    has_said_lost_ = true;
  }
}

// Sends the readers as much as fits into their sockets: one line to each reader in turn.
void KernelLog::hand_out() {
  std::size_t refused = 0;
  while (refused < readers_.size()) {
    refused = hand_to(&readers_.front()) ? 0 : refused + 1;
    readers_.splice(readers_.end(), readers_, readers_.begin());
  }
  if (lines_.empty()) has_said_lost_ = false;
  watch();
}

// Whether the reader has got a whole line. A line of which no byte fits stays for another reader.
bool KernelLog::hand_to(Reader *reader) {
  const bool begins = reader->rest.empty();
  if (begins && lines_.empty()) return false;
  std::string &line = begins ? lines_.front() : reader->rest;
  const ssize_t sent = send(reader->connection.get(), line.data(), line.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (sent <= 0) return false;  // full; or gone, which the loop will see
  const std::string rest = line.substr(static_cast<std::size_t>(sent));
  if (begins) {
    bytes_ -= line.size();
    lines_.pop_front();
  }
  reader->rest = rest;
  return rest.empty();
}

// Waits for room in a reader's socket if something is left for it.
void KernelLog::watch() {
  for (const Reader &reader : readers_) {
    const bool has_more = !lines_.empty() || !reader.rest.empty();
    loop_->change(reader.connection.get(), static_cast<short>(POLLIN | (has_more ? POLLOUT : 0)));
  }
}

void KernelLog::serve(int key) {
  char written[256];  // the stream is only for reading: bytes from the reader are dropped
  const ssize_t size = recv(key, written, sizeof written, MSG_DONTWAIT);
  const bool is_over = size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR);
  if (!is_over) return hand_out();
  report_detail("kmsg: a reader goes");
  loop_->forget(key);
  std::erase_if(readers_, [key](const Reader &reader) { return reader.connection.get() == key; });
}

}  // namespace tarn_sim
