// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Each time, the files are read whole: the daemon writes them whole, every three seconds, and they are small. Their
// times do not show every change, because two writes may have the same time.

#include "follow.h"

#include <poll.h>
#include <unistd.h>

#include <utility>

#include "common/output.h"
#include "common/status.h"
#include "faults.h"
#include "input.h"
#include "news.h"
#include "printer.h"

namespace tarn_tools::log {

namespace {

// A file that is followed, and its last state.
class Followed {
 public:
  explicit Followed(std::string path) : path_(std::move(path)) {}

  // Reads the file and returns its new records, which are valid until the next call. Reports faults in new lines.
  std::vector<Entry> look(const Filter &filter, const Printer &printer) {
    Content content = read_settled(path_);
    if (content.reading == Reading::kChanging) return {};
    if (content.reading == Reading::kFailed) return report_once(content.problem + "; waiting for it");
    if (content.reading == Reading::kTooLarge) return report_once(content.problem);
    if (file_.is_log) problem_.clear();
    if (content.bytes == content_) return {};
    content_ = std::move(content.bytes);
    file_ = parse_log(content_, LastLine::kMayGrow);
    if (!file_.is_log) return report_once(kNotALog);
    problem_.clear();
    print_description(printer);
    return entries(news_.take(file_.lines), filter);
  }

  bool is_faulty() const { return is_faulty_; }

 private:
  // A file that does not exist may appear, and one that is not a log may become one.
  std::vector<Entry> report_once(const std::string &problem) {
    if (problem != problem_) report_problem(path_, problem);
    problem_ = problem;
    return {};
  }

  // The head is written in one piece, before any record.
  void print_description(const Printer &printer) {
    if (file_.lines.empty() && file_.description.empty()) return;
    if (file_.head_faults.size() != head_faults_) {
      for (const Fault &fault : file_.head_faults) report_fault(path_, fault);
      head_faults_ = file_.head_faults.size();
      is_faulty_ = is_faulty_ || head_faults_ > 0;
    }
    if (file_.description == description_) return;
    description_ = file_.description;
    printer.print(path_, description_);
  }

  std::vector<Entry> entries(const std::vector<std::size_t> &fresh, const Filter &filter) {
    std::vector<Entry> entries;
    for (const std::size_t i : fresh) {
      const Line &line = file_.lines[i];
      if (!line.record) {
        report_fault(path_, {line.number, line.offset, line.reason});
        is_faulty_ = true;
      } else if (filter.passes(*line.record)) {
        entries.push_back({&path_, &line});
      }
    }
    return entries;
  }

  std::string path_;
  std::string content_;
  LogFile file_;
  News news_;
  Description description_;
  std::size_t head_faults_ = 0;
  std::string problem_;
  bool is_faulty_ = false;
};

// Waits for the interval. False if standard output is a pipe that nobody reads any more.
bool wait(int interval_ms) {
  pollfd output = {STDOUT_FILENO, 0, 0};
  return poll(&output, 1, interval_ms) <= 0 || (output.revents & (POLLERR | POLLHUP)) == 0;
}

}  // namespace

int follow(const Options &options) {
  const Printer printer(options);
  std::vector<Followed> files;
  files.reserve(options.paths.size());
  for (const std::string &path : options.paths) files.emplace_back(path);
  std::optional<std::size_t> last = options.last;
  do {
    std::vector<std::vector<Entry>> news;
    news.reserve(files.size());
    for (Followed &file : files) news.push_back(file.look(options.filter, printer));
    std::vector<Entry> entries = merge(news);
    keep_last(&entries, last);
    last.reset();  // all later records are shown
    for (const Entry &entry : entries) printer.print(entry);
    flush_output();
  } while (wait(options.interval_ms));
  for (const Followed &file : files) {
    if (options.strict && file.is_faulty()) return kNotSo;
  }
  return kDone;
}

}  // namespace tarn_tools::log
