// tarn-log: the gateway's log files, for people.

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>

#include "counts.h"
#include "follow.h"
#include "input.h"
#include "json.h"
#include "message.h"
#include "printer.h"
#include "status.h"

using namespace tarn_log;

namespace {

struct Source {
  const std::string *path;
  LogFile file;
};

// Tells what is malformed, in the order of the file. False when something is.
bool tell_faults(const Source &source) {
  bool is_sound = source.file.head_faults.empty();
  for (const Fault &fault : source.file.head_faults) tell_fault(*source.path, fault);
  for (const Line &line : source.file.lines) {
    if (line.record) continue;
    tell_fault(*source.path, {line.number, line.offset, line.reason});
    is_sound = false;
  }
  return is_sound;
}

std::vector<Entry> wanted(const Source &source, const Filter &filter) {
  std::vector<Entry> entries;
  for (const Line &line : source.file.lines) {
    if (line.record && filter.passes(*line.record)) entries.push_back({source.path, &line});
  }
  return entries;
}

void print_counts(const std::vector<Entry> &entries, bool json) {
  const Counts counts = count(entries);
  if (json) return print_line(counts_json(counts));
  const std::string table = counts_table(counts, terminal_columns());
  (void)fwrite(table.data(), 1, table.size(), stdout);  // a failure shows when all is flushed
}

void print_all(const std::vector<Source> &sources, const Options &options) {
  const Printer printer(options);
  std::vector<std::vector<Entry>> files;
  files.reserve(sources.size());
  for (const Source &source : sources) {
    printer.print(*source.path, source.file.description);
    files.push_back(wanted(source, options.filter));
  }
  std::vector<Entry> entries = merge(files);
  keep_last(&entries, options.last);
  if (options.reverse) std::reverse(entries.begin(), entries.end());
  if (options.count) return print_counts(entries, options.json);
  for (const Entry &entry : entries) printer.print(entry);
}

// What was printed goes out; returns `status`, or kWrong where it cannot.
int finish(int status) {
  const int error = flush_output();
  if (error == 0) return status;
  tell(std::string("standard output: ") + strerror(error));
  return kWrong;
}

// A file that cannot be read does not keep the others from being shown.
int show(const Options &options) {
  int status = kDone;
  std::vector<Source> sources;
  for (const std::string &path : options.paths) {
    int error = 0;
    const auto content = read_all(path, &error);
    if (!content) {
      tell(shown_name(path) + ": " + strerror(error));
      status = kWrong;
      continue;
    }
    sources.push_back({&path, parse_log(*content, LastLine::kMustEnd)});
    if (!tell_faults(sources.back()) && options.strict) status = std::max(status, kFaulty);
  }
  print_all(sources, options);
  return finish(status);
}

}  // namespace

int main(int argc, char **argv) {
  try {
    (void)signal(SIGXFSZ, SIG_IGN);  // output beyond a limit is told as on a full disk
    (void)setlocale(LC_CTYPE, "");   // letters in expressions, and whether a terminal knows blocks
    tzset();
    int status = kDone;
    const auto options = parse_options(argc, argv, &status);
    if (!options) return finish(status);
    return options->follow ? follow(*options) : show(*options);
  } catch (const std::exception &error) {  // no memory
    (void)fprintf(stderr, "tarn-log: %s\n", error.what());
    return kWrong;
  }
}
