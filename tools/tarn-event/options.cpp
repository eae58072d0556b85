#include "options.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>

#include "output.h"
#include "request.h"
#include "status.h"

namespace tarn_event {

namespace {

constexpr std::uint64_t kStormTimes = 100;
constexpr char kStormEvery[] = "10ms";
constexpr unsigned kLastModule = 99;
constexpr unsigned kLastLevel = 8;

constexpr char kHelp[] =
    R"(Usage: tarn-event [OPTION]... COMMAND [ARGUMENT]...

Talks to a gateway that runs under tarn-sim.

Commands:
  send TYPE [EVENT OPTION]...    send an event; TYPE is its number or its name
  storm TYPE [EVENT OPTION]...   send 100 of them, one each 10 ms, unless told otherwise
  kmsg MODULE LEVEL TEXT         a kernel driver logs TEXT, as a module 0 to 99 at a level 0 to 8
  kmsg TEXT                      a line of the kernel's log that belongs to no module
  run [LINE]...                  lines as in a script of tarn-sim; those of standard input without a LINE or for -
  dump                           let tarn-sim print its event table
  stop                           let tarn-sim end its daemon
  status                         show events, log levels and counters
  watch                          show them again and again

Options of an event:
  -p, --port=N          from this port of the gateway, 0 to 65535; --device means the same
      --data=HEX        with these bytes
      --text=TEXT       with the bytes of this text
  -n, --times=N         so many times
      --every=TIME      one each TIME, such as 20ms or 1.5s; without --times until the end

Options of status and watch:
      --all             all types of events, also those that are not in use
      --json            as JSON, one object a line
      --interval=S      watch: seconds from one look to the next, 0.01 to 3600; 1 unless given
      --count=N         watch: end after N looks

Options:
  -c, --control=SOCKET  tarn-sim's control socket
      --root=DIR        the root of tarn-sim, with the socket in it
  -h, --help            show this
      --version         show the version

Without --control and --root the socket is $TARN_SIM_CONTROL, or else the one in $TARN_SIM_ROOT.

Exit status: 0 done; 1 status: the daemon does not wait for events; 2 wrong use, no simulation, or it refuses a line.
)";

struct Words {
  std::string control, root;
  EventRequest event;
  std::vector<std::string> kernel;
  std::vector<std::string> lines;
  double interval_s = 1;
};

[[noreturn]] void refuse(const std::string &what, const std::string &word, const std::string &why) {
  throw CLI::ValidationError(what, "\"" + word + "\" " + why);
}

unsigned number_of(const std::string &what, const std::string &word, unsigned last) {
  const bool is_short = !word.empty() && word.size() <= 3 && word.find_first_not_of("0123456789") == std::string::npos;
  const unsigned long number = is_short ? strtoul(word.c_str(), nullptr, 10) : last + 1UL;
  if (number > last) refuse(what, word, "is no number from 0 to " + std::to_string(last));
  return static_cast<unsigned>(number);
}

std::string kernel_line(const std::vector<std::string> &words) {
  if (words.size() == 1) return line_of(KernelRequest{std::nullopt, std::nullopt, words[0]});
  if (words.size() != 3) throw CLI::ArgumentMismatch("kmsg takes MODULE LEVEL TEXT, or TEXT alone");
  return line_of(
      KernelRequest{number_of("MODULE", words[0], kLastModule), number_of("LEVEL", words[1], kLastLevel), words[2]});
}

std::string event_line(const EventRequest &event) {
  if (!is_word(event.type)) refuse("TYPE", event.type, "is no number and no name");
  if (event.every && !is_word(*event.every)) refuse("--every", *event.every, "is no time");
  if (event.data && event.data->find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    refuse("--data", *event.data, "is not hexadecimal");
  }
  return line_of(event);
}

std::string variable(const char *name) {
  const char *value = getenv(name);
  return value == nullptr ? "" : value;
}

std::string in_root(const std::string &root) { return root + "/control"; }

std::string control_of(const Words &words) {
  if (!words.control.empty()) return words.control;
  if (!words.root.empty()) return in_root(words.root);
  std::string control = variable("TARN_SIM_CONTROL");
  if (!control.empty()) return control;
  const std::string root = variable("TARN_SIM_ROOT");
  if (!root.empty()) return in_root(root);
  throw CLI::RequiredError("--control or --root");
}

// A line of its own for each line: one that holds a line end would be two.
std::vector<std::string> checked_lines(const std::vector<std::string> &lines) {
  for (const std::string &line : lines) {
    if (line.find('\n') != std::string::npos) refuse("LINE", line, "is more than one line");
  }
  return lines;
}

void add_event_options(CLI::App *command, Words *words) {
  command->add_option("TYPE", words->event.type)->required();
  command->add_option("-p,--port,--device", words->event.device)->type_name("N");
  auto *data = command->add_option("--data", words->event.data)->type_name("HEX");
  command->add_option("--text", words->event.text)->type_name("TEXT")->excludes(data);
  command->add_option("-n,--times", words->event.times)->type_name("N")->check(CLI::PositiveNumber);
  command->add_option("--every", words->event.every)->type_name("TIME");
}

void add_state_options(CLI::App *command, Options *options) {
  command->add_flag("--all", options->all);
  command->add_flag("--json", options->json);
}

void add_commands(CLI::App *app, Words *words, Options *options) {
  add_event_options(app->add_subcommand("send"), words);
  add_event_options(app->add_subcommand("storm"), words);
  app->add_subcommand("kmsg")->add_option("TEXT", words->kernel)->required();
  app->add_subcommand("run")->add_option("LINE", words->lines);
  app->add_subcommand("dump");
  app->add_subcommand("stop");
  add_state_options(app->add_subcommand("status"), options);
  auto *watch = app->add_subcommand("watch");
  add_state_options(watch, options);
  watch->add_option("--interval", words->interval_s)->check(CLI::Range(0.01, 3600.0));
  watch->add_option("--count", options->looks)->check(CLI::PositiveNumber);
}

void understand(const CLI::App &app, Words *words, Options *options) {
  options->interval_ms = static_cast<int>(words->interval_s * 1000);
  if (app.got_subcommand("status")) options->command = Command::kStatus;
  if (app.got_subcommand("watch")) options->command = Command::kWatch;
  if (app.got_subcommand("storm")) {
    if (!words->event.every) words->event.every = kStormEvery;
    if (!words->event.times) words->event.times = kStormTimes;
  }
  if (app.got_subcommand("send") || app.got_subcommand("storm")) options->lines = {event_line(words->event)};
  if (app.got_subcommand("kmsg")) options->lines = {kernel_line(words->kernel)};
  if (app.got_subcommand("dump")) options->lines = {"dump"};
  if (app.got_subcommand("stop")) options->lines = {"stop"};
  if (app.got_subcommand("run")) {
    options->lines = checked_lines(words->lines);
    options->from_input = options->lines.empty() || options->lines == std::vector<std::string>{"-"};
  }
  options->control = control_of(*words);
}

}  // namespace

std::optional<Options> parse_options(int argc, const char *const *argv, int *status) {
  CLI::App app("", "tarn-event");
  app.set_version_flag("--version", "tarn-event " TARN_TOOLS_VERSION);
  app.require_subcommand(1);
  app.fallthrough();  // the options of all commands may also stand behind the command
  Words words;
  std::optional<Options> options(std::in_place);
  app.add_option("-c,--control", words.control)->type_name("SOCKET");
  app.add_option("--root", words.root)->type_name("DIR");
  add_commands(&app, &words, &*options);
  try {
    app.parse(argc, argv);
    understand(app, &words, &*options);
    return options;
  } catch (const CLI::CallForHelp &) {
    print(kHelp);
  } catch (const CLI::CallForVersion &version) {
    print(std::string(version.what()) + "\n");
  } catch (const CLI::ParseError &error) {
    tell(std::string(error.what()) + "; see tarn-event --help");
    *status = kWrong;
    return std::nullopt;
  }
  *status = flush_output() ? kDone : kWrong;
  return std::nullopt;
}

}  // namespace tarn_event
