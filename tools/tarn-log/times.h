// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Converts points in time to and from text. In the program, a time is in seconds since the Unix epoch.
#ifndef TARN_TOOLS_LOG_TIMES_H
#define TARN_TOOLS_LOG_TIMES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarn_tools::log {

enum class Zone : std::uint8_t { kUtc, kLocal };

constexpr std::size_t kStampLength = sizeof "YYYY-MM-DD hh:mm:ss" - 1;

// A record's time: exactly "YYYY-MM-DD hh:mm:ss", in UTC; it must exist in the calendar.
std::optional<std::int64_t> parse_stamp(std::string_view text);

// --since and --until accept:
//   a date, with or without a time: "2026-01-02", "2026-01-02 03:04", "2026-01-02T03:04:05", in the given zone unless
//     "Z" or an offset such as "+02:00" follows the time;
//   "now", "today" and "yesterday" (which begin at midnight of the given zone);
//   a duration before now: "90s", "10min" or "10m", "2h", "3d", "1w", and sums: "1d12h".
std::optional<std::int64_t> parse_time(std::string_view text, std::int64_t now, Zone zone);

// "2026-01-02 03:04:05", in local time with its offset after it: "2026-01-02 05:04:05+02:00".
std::string show_time(std::int64_t time, Zone zone);

// RFC 3339: "2026-01-02T03:04:05Z" or "2026-01-02T05:04:05+02:00".
std::string rfc3339_time(std::int64_t time, Zone zone);

}  // namespace tarn_tools::log

#endif
