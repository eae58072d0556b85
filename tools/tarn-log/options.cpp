// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <cstdlib>
#include <ctime>

#include "common/command_line.h"
#include "common/words.h"
#include "input.h"

namespace tarn_tools::log {

namespace {

constexpr std::size_t kFollowLast = 10;

constexpr char kHelp[] =
    R"(Usage: tarn-log [OPTION]... [FILE]...

Shows the records of a gateway's log files, merged by time. The default FILEs are /overlay/mu_log.txt and
/overlay/user_log.txt; - is standard input.

Which records:
  -m, --module=NAME     of this module
  -l, --level=LEVEL     of this level and of more severe levels; LEVEL..LEVEL: of the first level to the second
      --since=TIME      from this time on
      --until=TIME      up to this time
  -g, --grep=TEXT       with this in their text
  -e, --regex=REGEX     whose text matches this POSIX extended regular expression
  -i, --ignore-case     upper and lower case are the same for --grep and --regex
  -n, --lines=N         only the last N of them; default: all, or 10 with --follow but without --since

How they are shown:
  -r, --reverse         show the latest record first
      --local           show local times, with their offset
      --utc             show times in UTC, as in the files: the default
      --color=WHEN      show levels in colour: auto (on a terminal, unless NO_COLOR is set), always or never
      --header          show the device's description first; it is in the user log
      --json            print JSON, one object per line; the device's description is first
      --count           show the number of records of each level and of each module
  -f, --follow          then show the records that the daemon adds, until interrupted
      --interval=S      seconds between two reads of the files: 0.01 to 3600, default 1
      --strict          exit with 1 if a line is malformed

  -h, --help            show this help
      --version         show the version

--module, --grep and --regex may be repeated: a record must match one of each kind. It must match all options of
different kinds. A LEVEL is a number or the beginning of a name: 0 Off, 1 Emergency, 2 Alert, 3 Critical, 4 Error,
5 Warning, 6 Notice, 7 Info, 8 Debug. A TIME is "2026-01-02", "2026-01-02 03:04" or "2026-01-02 03:04:05", in the zone
of the output unless "Z" or an offset such as "+02:00" follows; "now", "today" or "yesterday"; or how long ago: "90s",
"10min", "2h", "3d", "1d12h".
A malformed line is reported on standard error and not shown.

Exit status: 0 done; 1 a file is not a log file, or with --strict, a line is malformed; 2 wrong use, or a file cannot be
read.
)";

// Words whose meaning depends on other options: times depend on the zone, expressions on --ignore-case.
struct Words {
  std::optional<std::string> since, until;
  std::vector<std::string> regexes;
  bool is_local = false, is_utc = false;
};

int level_of(const std::string &range, const std::string &word) {
  const auto level = guess_level(word);
  if (!level)
    refuse("--level", range, "is not a level, nor the beginning of only one level's name, nor a range of levels");
  return *level;
}

// "LEVEL": this and more severe levels; "LEVEL..LEVEL": from one to the other, in either order.
void set_levels(const std::string &range, Filter *filter) {
  constexpr std::string_view kDots = "..";
  const auto dots = range.find(kDots);
  if (dots == std::string::npos) {
    filter->level_last = level_of(range, range);
    return;
  }
  filter->level_first = level_of(range, range.substr(0, dots));
  filter->level_last = level_of(range, range.substr(dots + kDots.size()));
  if (filter->level_first > filter->level_last) std::swap(filter->level_first, filter->level_last);
}

// A number that is too large means all.
std::size_t count_of(const std::string &word) {
  constexpr int kDecimal = 10;
  const bool is_number = !word.empty() && word.find_first_not_of("0123456789") == std::string::npos;
  if (!is_number) refuse("--lines", word, "is not a number");
  return strtoull(word.c_str(), nullptr, kDecimal);
}

std::int64_t time_of(const std::string &option, const std::string &word, Zone zone) {
  const auto result = parse_time(word, time(nullptr), zone);
  if (!result) {
    refuse(option, word, R"(is not a time: try "2026-01-02 03:04:05", "2026-01-02", "today", "10min" or "2h")");
  }
  return *result;
}

std::unique_ptr<Pattern> pattern_of(const std::string &regex, bool ignore_case) {
  std::string error;
  auto pattern = Pattern::compile(regex, ignore_case, &error);
  if (!pattern) refuse("--regex", regex, "is not a regular expression: " + error);
  return pattern;
}

void add_selection(Command program, Words *words, Options *options) {
  Filter *filter = &options->filter;
  const auto append_to = [](std::vector<std::string> *list) {
    return [list](const std::string &word) { list->push_back(word); };
  };
  program.repeated_option("-m,--module", "NAME", "", append_to(&filter->modules));
  program.option("-l,--level", "LEVEL", "", [filter](const std::string &word) { set_levels(word, filter); });
  program.option("--since", "TIME", "", [words](const std::string &word) { words->since = word; });
  program.option("--until", "TIME", "", [words](const std::string &word) { words->until = word; });
  program.repeated_option("-g,--grep", "TEXT", "", append_to(&filter->texts));
  program.repeated_option("-e,--regex", "REGEX", "", append_to(&words->regexes));
  program.flag("-i,--ignore-case", "", &filter->ignore_case);
  program.option("-n,--lines", "N", "", [options](const std::string &word) { options->last = count_of(word); });
  program.arguments("FILE", "", append_to(&options->paths));
}

void add_output(Command program, Words *words, Options *options) {
  program.flag("-r,--reverse", "", &options->reverse);
  program.flag("--local", "", &words->is_local);
  program.flag("--utc", "", &words->is_utc);
  program.exclude("--utc", "--local");
  program.option("--color", "WHEN", "", [options](const std::string &word) {
    options->colour = choice_of<Colour>(
        "--color", word, {{"auto", Colour::kAuto}, {"always", Colour::kAlways}, {"never", Colour::kNever}});
  });
  program.flag("--header", "", &options->header);
  program.flag("--json", "", &options->json);
  program.flag("--count", "", &options->count);
  program.flag("-f,--follow", "", &options->follow);
  program.exclude("--follow", "--reverse");
  program.exclude("--follow", "--count");
  program.option("--interval", "S", "",
                 [options](const std::string &word) { options->interval_ms = milliseconds_of("--interval", word); });
  program.flag("--strict", "", &options->strict);
}

void finish(const Words &words, Options *options) {
  Filter &filter = options->filter;
  options->zone = words.is_local ? Zone::kLocal : Zone::kUtc;
  if (words.since) filter.since = time_of("--since", *words.since, options->zone);
  if (words.until) filter.until = time_of("--until", *words.until, options->zone);
  for (const std::string &regex : words.regexes) filter.patterns.push_back(pattern_of(regex, filter.ignore_case));
  if (options->paths.empty()) options->paths = {"/overlay/mu_log.txt", "/overlay/user_log.txt"};
  if (!options->follow) return;
  for (const std::string &path : options->paths) {
    if (path == kStandardInput) refuse("--follow", path, "is standard input, which cannot be read anew");
  }
  if (!options->last && !words.since) options->last = kFollowLast;
}

}  // namespace

std::optional<Options> parse_options(int argc, const char *const *argv) {
  CommandLine line("tarn-log", "");
  line.set_help(kHelp);
  Words words;
  std::optional<Options> options(std::in_place);
  add_selection(line.program(), &words, &*options);
  add_output(line.program(), &words, &*options);
  if (!line.parse(argc, argv)) return std::nullopt;
  finish(words, &*options);
  return options;
}

}  // namespace tarn_tools::log
