// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "show.h"

#include <algorithm>
#include <set>

#include "common/output.h"
#include "common/report.h"
#include "common/status.h"
#include "counts.h"
#include "faults.h"
#include "input.h"
#include "json.h"
#include "printer.h"

namespace tarn_tools::log {

namespace {

struct Source {
  const std::string *path;
  LogFile file;
};

// Reports malformed lines, in the order of the file. False if there are any.
bool report_faults(const Source &source) {
  bool is_sound = source.file.head_faults.empty();
  for (const Fault &fault : source.file.head_faults) report_fault(*source.path, fault);
  for (const Line &line : source.file.lines) {
    if (line.record) continue;
    report_fault(*source.path, {line.number, line.offset, line.reason});
    is_sound = false;
  }
  return is_sound;
}

// Reads a file and adds its content. Returns the exit status for this file.
int add_source(const std::string &path, bool is_strict, std::vector<Source> *sources) {
  const Content content = read_at_rest(path);
  if (content.reading != Reading::kDone) {
    report_problem(path, content.problem);
    return content.reading == Reading::kTooLarge ? kNotSo : kWrong;
  }
  Source source = {&path, parse_log(content.bytes, LastLine::kMustEnd)};
  if (!source.file.is_log) {
    report_problem(path, kNotALog);
    return kNotSo;
  }
  const bool is_sound = report_faults(source);
  sources->push_back(std::move(source));
  return is_sound || !is_strict ? kDone : kNotSo;
}

// If no record has a module's name, the name may be mistyped: then the existing names are listed, if there are records.
void report_unknown_modules(const std::vector<Source> &sources, const std::vector<std::string> &wanted) {
  std::set<std::string> known;
  for (const Source &source : sources) {
    for (const Line &line : source.file.lines) {
      if (line.record) known.insert(line.record->module);
    }
  }
  if (known.empty()) return;
  std::string names;
  for (const std::string &name : known) names += (names.empty() ? "" : ", ") + name;
  for (const std::string &name : wanted) {
    if (known.count(name) == 0) report("no record is of the module \"" + name + "\"; there are " + names);
  }
}

std::vector<Entry> wanted_entries(const Source &source, const Filter &filter) {
  std::vector<Entry> entries;
  for (const Line &line : source.file.lines) {
    if (line.record && filter.passes(*line.record)) entries.push_back({source.path, &line});
  }
  return entries;
}

void print_counts(const std::vector<Entry> &entries, bool json) {
  const Counts counts = count(entries);
  if (json) return print_line(counts_json(counts));
  print(counts_table(counts, terminal_columns()));
}

void print_all(const std::vector<Source> &sources, const Options &options) {
  const Printer printer(options);
  std::vector<std::vector<Entry>> files;
  files.reserve(sources.size());
  for (const Source &source : sources) {
    printer.print(*source.path, source.file.description);
    files.push_back(wanted_entries(source, options.filter));
  }
  std::vector<Entry> entries = merge(files);
  keep_last(&entries, options.last);
  if (options.reverse) std::reverse(entries.begin(), entries.end());
  if (options.count) return print_counts(entries, options.json);
  for (const Entry &entry : entries) printer.print(entry);
}

}  // namespace

int show(const Options &options) {
  int status = kDone;
  std::vector<Source> sources;
  for (const std::string &path : options.paths) {
    status = std::max(status, add_source(path, options.strict, &sources));
  }
  report_unknown_modules(sources, options.filter.modules);
  print_all(sources, options);
  return status;
}

}  // namespace tarn_tools::log
