// The time that a record line begins with, "YYYY-MM-DD hh:mm:ss": written by a save, read by a load, and put into local
// time by a copy for a reader.
#ifndef TARN_LOG_TIME_STAMP_H
#define TARN_LOG_TIME_STAMP_H

#include <ctime>

#include "internal.h"

namespace tarn::log {

constexpr size_t kStampLength = sizeof "YYYY-MM-DD hh:mm:ss" - 1;

// Room for the time of any time_t, whose years have up to ten digits and a sign.
constexpr size_t kStampSize = 32;

// Whether the 5th and the 8th character are the dashes of a date. A shorter line has none.
bool has_dashes(std::string_view line);

// Times of many records, of which many have the second of the one before. Written in UTC.
class StampWriter {
 public:
  // Stands until the next call.
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

// Times of many lines, most of them in the hour of the line before. Times in the file are UTC, but mktime is what turns
// them into seconds. Deliberate: so each restart moves a record by the zone's offset. Held by
// LogStore.ReadsTheTimesBackAsLocalTime.
class StampReader {
 public:
  // False when the line begins with no time. A NUL must follow the line.
  bool read(std::string_view line, time_t *time);

 private:
  void enter_hour(std::string_view line);

  char hour_[sizeof "YYYY-MM-DD hh" - 1] = {};
  time_t start_ = 0;
  bool is_even_ = false;
};

// Puts local time over the time that a record line begins with. False for a line that is not a record.
bool localise(char *line);

}  // namespace tarn::log

#endif
