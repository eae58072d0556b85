// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The kernel's message stream, /proc/kmsg: each line reaches one reader.
#ifndef TARN_SIM_LAUNCHER_KERNEL_LOG_H
#define TARN_SIM_LAUNCHER_KERNEL_LOG_H

#include <cstdint>
#include <deque>
#include <list>
#include <string>

#include "failures.h"
#include "modules.h"
#include "service.h"

namespace tarn_sim {

class KernelLog {
 public:
  // Lines that no reader has taken are kept up to this many bytes.
  static constexpr std::size_t kRoom = 262144;

  KernelLog(Loop *loop, const std::string &path, Failures *failures);
  ~KernelLog();
  KernelLog(const KernelLog &) = delete;
  KernelLog &operator=(const KernelLog &) = delete;

  bool is_open() const { return service_.is_open(); }

  // Writes a driver's line with the log's frame, unless the settings of its module prevent it.
  void write_framed(const Modules &modules, std::uint8_t module, std::uint8_t level, const std::string &text);
  void write_plain(const std::string &text);
  void write_bytes(std::string bytes);

  // Whether lines wait, and there has never been a reader.
  bool waits_for_first_reader() const { return !had_reader_ && !lines_.empty(); }

  std::uint64_t written() const { return written_; }
  std::uint64_t withheld() const { return withheld_; }
  std::uint64_t lost() const { return lost_; }

 private:
  struct Reader {
    Descriptor connection;
    std::string rest;  // of a line of which it has got a part
  };

  Response open();
  void add_reader(Descriptor connection);
  void write_lines(unsigned priority, const std::string &text);
  void make_room();
  void hand_out();
  bool hand_to(Reader *reader);
  void watch();
  void serve(int key);

  Loop *loop_;
  Failures *failures_;
  std::deque<std::string> lines_;
  std::size_t bytes_ = 0;
  std::list<Reader> readers_;
  std::int64_t start_us_;
  std::uint64_t written_ = 0;
  std::uint64_t withheld_ = 0;
  std::uint64_t lost_ = 0;
  bool has_said_lost_ = false;
  bool had_reader_ = false;
  Service service_;
};

}  // namespace tarn_sim

#endif
