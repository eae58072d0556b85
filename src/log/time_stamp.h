// The time of a record line, "YYYY-MM-DD hh:mm:ss", as the log files begin their lines with.
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

// Whether `line` begins with a time of the written form, digit for digit.
bool is_plain_stamp(std::string_view line);

// Reads a time, blanks and signs included, as sscanf reads "%4d-%2d-%2d %2d:%2d:%2d". False when a number is missing.
bool read_stamp(const char *line, tm *fields);

// Writes the time in UTC and returns its length.
size_t write_stamp(char (&out)[kStampSize], time_t time);

}  // namespace tarn::log

#endif
