// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <cstdlib>

#include "common/command_line.h"
#include "common/words.h"
#include "request.h"

namespace tarn_tools::event {

namespace {

constexpr std::uint32_t kStormTimes = 100;
constexpr std::uint32_t kTimesMost = 1000000000;  // the limit of a simulation
constexpr char kStormEvery[] = "10ms";
constexpr char kStandardInput[] = "-";
constexpr unsigned kLastModule = 99;
constexpr unsigned kLastLevel = 8;

constexpr char kHelp[] =
    R"(Usage: tarn-event [OPTION]... COMMAND [ARGUMENT]...

Controls the simulation of a gateway that tarn-sim runs.

Commands:
  send TYPE [EVENT OPTION]...    send an event; TYPE is its number or its name
  storm TYPE [EVENT OPTION]...   send events; default: 100 events, one every 10 ms
  kmsg MODULE LEVEL TEXT         a kernel driver logs TEXT, as a module 0 to 99 at a level 0 to 8
  kmsg TEXT                      the kernel writes a line that does not belong to a module
  run [LINE]...                  run lines of a tarn-sim script; without a LINE, or for -, those of standard input
  dump                           let tarn-sim print its event table
  stop                           let tarn-sim end its daemon
  status                         show events, log levels and counters
  watch                          show them repeatedly

Options of an event:
  -p, --port=N          the port of the gateway that it comes from, 0 to 65535; --device means the same
      --data=HEX        its data, in hexadecimal
      --text=TEXT       its data, as text
  -n, --times=N         send N events
      --every=TIME      send one event every TIME, such as 20ms or 1.5s; without --times until the end

Options of status and watch:
      --all             show all event types, including those that are not in use
      --json            print JSON, one object per line
      --interval=S      watch: seconds between two statuses, 0.01 to 3600; default 1
      --count=N         watch: end after N statuses

Options:
  -c, --control=SOCKET  tarn-sim's control socket
      --root=DIR        the root of tarn-sim, with the socket in it
  -h, --help            show this help
      --version         show the version

Without --control and --root the socket is $TARN_SIM_CONTROL, or else the one in $TARN_SIM_ROOT.

Exit status: 0 done; 1 status: the daemon does not wait for events; 2 wrong use, no simulation, or it refuses a line.
)";

struct Words {
  std::string control, root;
  EventRequest event;
  std::vector<std::string> kernel;
  std::vector<std::string> lines;
  std::string command;
};

std::string kernel_line(const std::vector<std::string> &words) {
  if (words.size() == 1) return line_of(KernelRequest{std::nullopt, std::nullopt, words[0]});
  if (words.size() != 3) throw UsageError("kmsg takes MODULE LEVEL TEXT, or only TEXT");
  return line_of(KernelRequest{number_of("MODULE", words[0], 0, kLastModule),
                               number_of("LEVEL", words[1], 0, kLastLevel), words[2]});
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
  throw UsageError("--control or --root is required");
}

// One word of a line. `what` and `why` are for the message.
Take word_into(std::string *text, const char *what, const char *why) {
  return [text, what, why](const std::string &word) {
    if (!is_word(word)) refuse(what, word, why);
    *text = word;
  };
}

std::string hexadecimal(const std::string &word) {
  if (word.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    refuse("--data", word, "is not hexadecimal");
  }
  if (word.size() % 2 != 0) refuse("--data", word, "is not pairs of hexadecimal digits");
  return word;
}

// Returns the line. Refuses a line end in it, which would make two lines.
std::string one_line(const std::string &line) {
  if (line.find('\n') != std::string::npos) refuse("LINE", line, "is more than one line");
  return line;
}

void add_event_options(Command command, EventRequest *event) {
  command.needed_argument("TYPE", "", word_into(&event->type, "TYPE", "is neither a number nor a name"));
  command.option("-p,--port,--device", "N", "", [event](const std::string &word) {
    event->device = static_cast<std::uint16_t>(number_of("--port", word, 0, UINT16_MAX));
  });
  command.option("--data", "HEX", "", [event](const std::string &word) { event->data = hexadecimal(word); });
  command.option("--text", "TEXT", "", [event](const std::string &word) { event->text = word; });
  command.exclude("--text", "--data");
  command.option("-n,--times", "N", "",
                 [event](const std::string &word) { event->times = number_of("--times", word, 1, kTimesMost); });
  command.option("--every", "TIME", "", [event](const std::string &word) {
    word_into(&event->every.emplace(), "--every", "is not a time")(word);
  });
}

void add_state_options(Command command, Options *options) {
  command.flag("--all", "", &options->all);
  command.flag("--json", "", &options->json);
}

void add_commands(CommandLine *line, Words *words, Options *options) {
  const auto add = [&](const char *name) { return line->command(name, "", [words, name] { words->command = name; }); };
  const auto append_to = [](std::vector<std::string> *list) {
    return [list](const std::string &word) { list->push_back(word); };
  };
  add_event_options(add("send"), &words->event);
  add_event_options(add("storm"), &words->event);
  add("kmsg").arguments("TEXT", "", append_to(&words->kernel));
  add("run").arguments("LINE", "", [words](const std::string &word) { words->lines.push_back(one_line(word)); });
  (void)add("dump");
  (void)add("stop");
  add_state_options(add("status"), options);
  Command watch = add("watch");
  add_state_options(watch, options);
  watch.option("--interval", "S", "",
               [options](const std::string &word) { options->interval_ms = milliseconds_of("--interval", word); });
  watch.option("--count", "N", "",
               [options](const std::string &word) { options->looks = number_of("--count", word, 1, UINT32_MAX); });
}

void finish(Words *words, Options *options) {
  EventRequest &event = words->event;
  const std::string &command = words->command;
  if (command == "storm") {
    if (!event.every) event.every = kStormEvery;
    if (!event.times) event.times = kStormTimes;
  }
  if (command == "status") options->action = Action::kStatus;
  if (command == "watch") options->action = Action::kWatch;
  if (command == "send" || command == "storm") options->lines = {line_of(event)};
  if (command == "kmsg") options->lines = {kernel_line(words->kernel)};
  if (command == "dump" || command == "stop") options->lines = {command};
  if (command == "run") {
    options->lines = words->lines;
    options->are_typed = true;
    options->from_input = options->lines.empty() || options->lines == std::vector<std::string>{kStandardInput};
  }
  options->control = control_of(*words);
}

}  // namespace

std::optional<Options> parse_options(int argc, const char *const *argv) {
  CommandLine line("tarn-event", "");
  line.set_help(kHelp);
  Words words;
  std::optional<Options> options(std::in_place);
  line.program().option("-c,--control", "SOCKET", "", into(&words.control));
  line.program().option("--root", "DIR", "", into(&words.root));
  add_commands(&line, &words, &*options);
  if (!line.parse(argc, argv)) return std::nullopt;
  finish(&words, &*options);
  return options;
}

}  // namespace tarn_tools::event
