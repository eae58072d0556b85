#include "options.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <stdexcept>

#include "input.h"
#include "message.h"
#include "status.h"

namespace tarn_log {

namespace {

constexpr std::size_t kFollowLast = 10;

constexpr char kHelp[] =
    R"(Usage: tarn-log [OPTION]... [FILE]...

Shows the records of a gateway's log files, merged by time. The FILEs are /overlay/mu_log.txt and /overlay/user_log.txt
unless given; - is standard input.

Which records:
  -m, --module=NAME     of this module
  -l, --level=LEVEL     of this level and the more severe ones; LEVEL..LEVEL: from the one to the other
      --since=TIME      of this time and later
      --until=TIME      of this time and earlier
  -g, --grep=TEXT       with this in their text
  -e, --regex=REGEX     whose text matches this POSIX extended regular expression
  -i, --ignore-case     take the letters of --grep and --regex in any case
  -n, --lines=N         the last N of them; with --follow 10 unless given, or all with --since

How they are shown:
  -r, --reverse         the latest first
      --local           in local time, with its offset
      --utc             in UTC, as the files have it: the default
      --color=WHEN      levels in colour: auto (on a terminal, unless NO_COLOR is set), always or never
      --header          behind the device's description, which stands in the user log
      --json            as JSON, one object a line, the device's description first
      --count           as numbers: how many of each level and of each module
  -f, --follow          and go on with what the daemon adds, until interrupted
      --interval=S      seconds from one look at the files to the next: 0.01 to 3600, 1 unless given
      --strict          and exit with 1 when a line is malformed

  -h, --help            show this
      --version         show the version

--module, --grep and --regex may be repeated: one of each must hold. Options of different kinds must all hold.
A LEVEL is a number or the beginning of a name: 0 Off, 1 Emergency, 2 Alert, 3 Critical, 4 Error, 5 Warning,
6 Notice, 7 Info, 8 Debug. A TIME is "2026-01-02", "2026-01-02 03:04" or "2026-01-02 03:04:05", in the zone that is
shown unless "Z" or an offset such as "+02:00" follows; "now", "today" or "yesterday"; or how long ago: "90s", "10min",
"2h", "3d", "1d12h".
A malformed line is told on standard error and left out.

Exit status: 0 done; 1 with --strict, a line is malformed; 2 wrong use, or a file cannot be read.
)";

// What the command line holds, before it is understood.
struct Words {
  std::optional<std::string> level, since, until, lines;
  std::vector<std::string> regexes;
  std::string colour = "auto";
  double interval_s = 1;
  bool local = false, utc = false;
};

[[noreturn]] void refuse(const std::string &option, const std::string &word, const std::string &why) {
  throw CLI::ValidationError(option, "\"" + word + "\" " + why);
}

int level_of(const std::string &range, const std::string &word) {
  const auto level = guess_level(word);
  if (!level) refuse("--level", range, "is no level, no beginning of one level's name alone, and no range of levels");
  return *level;
}

// "LEVEL": this and more severe ones; "LEVEL..LEVEL": from the one to the other, in either order.
void set_levels(const std::string &range, Filter *filter) {
  const auto dots = range.find("..");
  if (dots == std::string::npos) {
    filter->level_last = level_of(range, range);
    return;
  }
  filter->level_first = level_of(range, range.substr(0, dots));
  filter->level_last = level_of(range, range.substr(dots + 2));
  if (filter->level_first > filter->level_last) std::swap(filter->level_first, filter->level_last);
}

std::int64_t time_of(const std::string &option, const std::string &word, Zone zone) {
  const auto result = parse_time(word, time(nullptr), zone);
  if (!result) refuse(option, word, R"(is no time: try "2026-01-02 03:04:05", "2026-01-02", "today", "10min" or "2h")");
  return *result;
}

// More than any file holds is all.
std::size_t count_of(const std::string &word) {
  const bool is_number = !word.empty() && word.find_first_not_of("0123456789") == std::string::npos;
  if (!is_number) refuse("--lines", word, "is no number");
  return strtoull(word.c_str(), nullptr, 10);
}

void understand(const Words &words, Options *options) {
  Filter &filter = options->filter;
  if (words.lines) options->last = count_of(*words.lines);
  options->zone = words.local ? Zone::kLocal : Zone::kUtc;
  if (words.level) set_levels(*words.level, &filter);
  if (words.since) filter.since = time_of("--since", *words.since, options->zone);
  if (words.until) filter.until = time_of("--until", *words.until, options->zone);
  for (const std::string &regex : words.regexes) {
    std::string error;
    auto pattern = Pattern::compile(regex, filter.ignore_case, &error);
    if (!pattern) refuse("--regex", regex, "is no regular expression: " + error);
    filter.patterns.push_back(std::move(pattern));
  }
  options->colour = words.colour == "always"  ? Colour::kAlways
                    : words.colour == "never" ? Colour::kNever
                                              : Colour::kAuto;
  if (std::isnan(words.interval_s)) refuse("--interval", "nan", "is no number");  // it lies in every range
  options->interval_ms = static_cast<int>(words.interval_s * 1000);
  if (options->paths.empty()) options->paths = {"/overlay/mu_log.txt", "/overlay/user_log.txt"};
  if (!options->follow) return;
  for (const std::string &path : options->paths) {
    if (path == kStandardInput) refuse("--follow", path, "is standard input, which cannot be read anew");
  }
  if (!options->last && !words.since) options->last = kFollowLast;
}

// A list takes one word each time that its option is given: the next word may be a file.
void add_list(CLI::App *app, const char *names, const char *type, std::vector<std::string> *list) {
  app->add_option(names, *list)->type_name(type)->allow_extra_args(false);
}

void add_selection(CLI::App *app, Words *words, Options *options) {
  add_list(app, "-m,--module", "NAME", &options->filter.modules);
  app->add_option("-l,--level", words->level)->type_name("LEVEL");
  app->add_option("--since", words->since)->type_name("TIME");
  app->add_option("--until", words->until)->type_name("TIME");
  add_list(app, "-g,--grep", "TEXT", &options->filter.texts);
  add_list(app, "-e,--regex", "REGEX", &words->regexes);
  app->add_flag("-i,--ignore-case", options->filter.ignore_case);
  app->add_option("-n,--lines", words->lines)->type_name("N");
}

void add_output(CLI::App *app, Words *words, Options *options) {
  auto *reverse = app->add_flag("-r,--reverse", options->reverse);
  auto *local = app->add_flag("--local", words->local);
  app->add_flag("--utc", words->utc)->excludes(local);
  app->add_option("--color", words->colour)->check(CLI::IsMember({"auto", "always", "never"}));
  app->add_flag("--header", options->header);
  app->add_flag("--json", options->json);
  auto *count = app->add_flag("--count", options->count);
  app->add_flag("-f,--follow", options->follow)->excludes(reverse)->excludes(count);
  app->add_option("--interval", words->interval_s)->check(CLI::Range(0.01, 3600.0));
  app->add_flag("--strict", options->strict);
}

}  // namespace

std::optional<Options> parse_options(int argc, const char *const *argv, int *status) {
  CLI::App app("", "tarn-log");
  app.set_version_flag("--version", "tarn-log " TARN_TOOLS_VERSION);
  Words words;
  std::optional<Options> options(std::in_place);
  app.add_option("FILE", options->paths);
  add_selection(&app, &words, &*options);
  add_output(&app, &words, &*options);
  try {
    app.parse(argc, argv);
    understand(words, &*options);
    return options;
  } catch (const CLI::CallForHelp &) {
    (void)fputs(kHelp, stdout);
  } catch (const CLI::CallForVersion &version) {
    (void)fprintf(stdout, "%s\n", version.what());
  } catch (const CLI::ParseError &error) {
    tell(std::string(error.what()) + "; see tarn-log --help");
    *status = kWrong;
    return std::nullopt;
  }
  *status = kDone;
  return std::nullopt;
}

}  // namespace tarn_log
