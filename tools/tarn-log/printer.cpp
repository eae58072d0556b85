// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "printer.h"

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>

#include "common/output.h"
#include "common/report.h"
#include "json.h"
#include "levels.h"

namespace tarn_tools::log {

namespace {

constexpr std::size_t kLevelWidth = sizeof "Emergency" - 1;
constexpr std::size_t kFieldWidth = sizeof "Manufacturer" - 1;

constexpr char kPlain[] = "\033[0m";
constexpr char kFaint[] = "\033[2m";

// Select Graphic Rendition of ECMA-48, by level.
constexpr std::array<const char *, kLevelCount> kColours = {
    "\033[35m",       // Off: magenta
    "\033[1;37;41m",  // Emergency: white on red
    "\033[1;31m",     // Alert: bold red
    "\033[1;31m",     // Critical
    "\033[31m",       // Error: red
    "\033[33m",       // Warning: yellow
    "\033[32m",       // Notice: green
    "",               // Info
    "\033[2m",        // Debug: faint
};

bool is_empty(const char *value) { return value == nullptr || *value == '\0'; }

// A word on the command line has precedence over the environment, see no-color.org.
bool wants_colour(Colour choice) {
  if (choice != Colour::kAuto) return choice == Colour::kAlways;
  const char *terminal = getenv("TERM");
  return is_empty(getenv("NO_COLOR")) && isatty(STDOUT_FILENO) != 0 && !is_empty(terminal) &&
         strcmp(terminal, "dumb") != 0;
}

std::string padding(std::size_t size, std::size_t width) {
  std::string blanks;
  if (size < width) blanks.assign(width - size, ' ');
  return blanks;
}

}  // namespace

Printer::Printer(const Options &options)
    : json_(options.json),
      colour_(wants_colour(options.colour)),
      header_(options.header || (options.json && !options.count)),
      zone_(options.zone) {}

void Printer::print(const std::string &path, const Description &description) const {
  if (description.empty() || !header_) return;
  if (json_) return print_line(description_json(path, description));
  for (const auto &[name, value] : description) {
    print_line(name + ":" + padding(name.size(), kFieldWidth) + " " + printable(value));
  }
  print_line("");
}

void Printer::print(const Entry &entry) const {
  const Record &record = entry.record();
  if (json_) return print_line(record_json(*entry.path, entry.line->number, record, zone_));
  const std::string time = show_time(record.time, zone_);
  const std::string level(level_name(record.level));
  const std::string rest = padding(level.size(), kLevelWidth) + " " + printable(record.module + ": " + record.text);
  if (!colour_) return print_line(time + " " + level + rest);
  const char *colour = kColours.at(static_cast<std::size_t>(record.level));
  print_line(kFaint + time + kPlain + " " + (*colour == '\0' ? level : colour + level + kPlain) + rest);
}

}  // namespace tarn_tools::log
