// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The system log has the line "SysLog:" before its records, the user log six lines "NAME:VALUE;" and an empty one.

#include "log_file.h"

#include <algorithm>
#include <array>

#include "levels.h"
#include "times.h"

namespace tarn_tools::log {

namespace {

constexpr std::string_view kSystemHead = "SysLog:";
constexpr std::array<std::string_view, 6> kFields = {"Manufacturer", "ProductClass", "SerialNumber",
                                                     "IP",           "HWVer",        "SWVer"};
constexpr std::size_t kModuleMax = MUP_LOG_NAME_SIZE - 1;

// The daemon makes a fresh system log with a NUL at its end.
constexpr std::string_view kFreshSystemFile("SysLog:\n", sizeof "SysLog:\n");

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::optional<Record> parse_record(std::string_view line, std::string *reason) {
  const auto refuse = [reason](std::string why) {
    *reason = std::move(why);
    return std::nullopt;
  };
  const auto nul = line.find('\0');
  if (nul != std::string_view::npos) return refuse("a NUL in column " + std::to_string(nul + 1));
  Record record;
  const auto time = parse_stamp(line.substr(0, kStampLength));
  if (!time) return refuse("no time \"YYYY-MM-DD hh:mm:ss\" at its beginning");
  record.time = *time;
  line.remove_prefix(kStampLength);
  const auto bracket = line.find(']');
  if (line.empty() || line[0] != '[' || bracket == std::string_view::npos)
    return refuse("no \"[LEVEL]\" after the time");
  const std::string_view level = line.substr(1, bracket - 1);
  const auto number = find_level(level);
  if (!number) return refuse("unknown level " + quoted(level));
  record.level = *number;
  line.remove_prefix(bracket + 1);
  const auto colon = line.find(':');
  if (colon == std::string_view::npos) return refuse("no \":\" after the module");
  if (colon == 0) return refuse("a module without a name");
  if (colon > kModuleMax) return refuse("a module's name of more than 15 bytes");
  record.module = line.substr(0, colon);
  record.text = line.substr(colon + 1);
  if (record.text.empty()) return refuse("no text");
  return record;
}

// Parses the lines one by one: first those of the head, then the records.
class Parser {
 public:
  void take(Line line) {
    if (in_head_ && take_head(line)) return;
    line.record = parse_record(line.raw, &line.reason);
    file_.lines.push_back(std::move(line));
  }

  // For the last line, if it has no line feed.
  void take_cut_off(Line line) { file_.lines.push_back(std::move(line)); }

  // After the last line.
  LogFile finish() {
    const bool has_record =
        std::any_of(file_.lines.begin(), file_.lines.end(), [](const Line &l) { return l.record.has_value(); });
    const bool is_empty = file_.lines.empty() && file_.head_faults.empty();
    file_.is_log = has_system_head_ || !file_.description.empty() || has_record || is_empty;
    return std::move(file_);
  }

 private:
  // False if the head has ended before this line.
  bool take_head(const Line &line) {
    if (line.number == 1 && line.raw == kSystemHead) {
      in_head_ = false;
      has_system_head_ = true;
      return true;
    }
    if (line.raw.empty()) {
      in_head_ = false;
      if (file_.description.size() != kFields.size()) {
        fault(line, "the device's description has " + std::to_string(file_.description.size()) + " of " +
                        std::to_string(kFields.size()) + " fields");
      }
      return true;
    }
    if (take_field(line.raw)) return true;
    std::string reason;
    if (!parse_record(line.raw, &reason)) {
      fault(line, "neither \"SysLog:\" nor a field of the device's description");
      return true;
    }
    fault(line, line.number == 1 ? "neither \"SysLog:\" nor the device's description before the records"
                                 : "no empty line after the device's description");
    in_head_ = false;
    return false;
  }

  bool take_field(std::string_view line) {
    const auto colon = line.find(':');
    const bool is_field = colon != std::string_view::npos && line.back() == ';' &&
                          std::find(kFields.begin(), kFields.end(), line.substr(0, colon)) != kFields.end();
    if (!is_field) return false;
    file_.description.emplace_back(line.substr(0, colon), line.substr(colon + 1, line.size() - colon - 2));
    return true;
  }

  void fault(const Line &line, std::string reason) {
    file_.head_faults.push_back({line.number, line.offset, std::move(reason)});
  }

  LogFile file_;
  bool in_head_ = true;
  bool has_system_head_ = false;
};

}  // namespace

LogFile parse_log(std::string_view content, LastLine last_line) {
  if (content == kFreshSystemFile) content.remove_suffix(1);
  Parser parser;
  std::size_t offset = 0;
  std::size_t number = 1;
  for (; offset < content.size(); number++) {
    const auto end = content.find('\n', offset);
    if (end == std::string_view::npos) break;
    parser.take({std::string(content.substr(offset, end - offset)), number, offset, std::nullopt, ""});
    offset = end + 1;
  }
  if (offset < content.size() && last_line == LastLine::kMustEnd) {
    parser.take_cut_off(
        {std::string(content.substr(offset)), number, offset, std::nullopt, "cut off: no line feed at its end"});
  }
  return parser.finish();
}

}  // namespace tarn_tools::log
