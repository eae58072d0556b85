// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The time at the start of a record line, "YYYY-MM-DD hh:mm:ss". A save writes it, a load reads it, and a copy for a
// reader converts it to local time.
#ifndef TARN_LOG_TIME_STAMP_H
#define TARN_LOG_TIME_STAMP_H

#include <ctime>

#include "internal.h"

namespace tarn::log {

constexpr size_t kStampLength = sizeof "YYYY-MM-DD hh:mm:ss" - 1;

// Room for the text of any time_t; its year has up to ten digits and a sign.
constexpr size_t kStampSize = 32;

// Whether the 5th and the 8th character are the dashes of a date. A shorter line does not have them.
bool has_dashes(std::string_view line);

// Writes the times of many records in UTC. Many of them have the same second as the previous record.
class StampWriter {
 public:
  // The result is valid until the next call.
  std::string_view of(time_t time) {
    if (length_ == 0 || time != time_) write(time);
    return {text_, length_};
  }

 private:
  void write(time_t time);

  time_t time_ = 0;
  size_t length_ = 0;
  char text_[kStampSize] = {};
};

// Reads the times of many lines, most of them in the same hour as the previous line.
class StampReader {
 public:
  // False when the line does not begin with a time. A NUL must follow the line.
  bool read(std::string_view line, time_t *time);

 private:
  void enter_hour(std::string_view line);

  char hour_[sizeof "YYYY-MM-DD hh" - 1] = {};
  time_t start_ = 0;
  bool is_even_ = false;
};

// Replaces the time at the start of a record line with local time. False for a line that is not a record.
bool localise(char *line);

}  // namespace tarn::log

#endif
