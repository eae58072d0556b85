// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "options.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "console.h"
#include "script.h"

namespace tarn_sim {

namespace {

constexpr std::uint32_t kMostEvents = 65536;  // a datagram's type has 16 bits

constexpr char kHelp[] =
    R"(Usage: tarn-sim [OPTION]... -- DAEMON [ARG]...

Runs a gateway daemon on this machine, and simulates the kernel that it expects: the platform device, the event channel,
the log device, the kernel's messages, the overlay file system and a log collector.

      --root=DIR        the folder of the simulated files, DIR/overlay and the like; it is kept. Default: a new folder
                        in /tmp, removed at the end
      --script=FILE     the commands to run, and when
      --control=SOCKET  the socket for tarn-event and other clients; default DIR/control
      --collector=PORT  send the datagrams for port 514 to your own log collector, on this UDP port of 127.0.0.1
      --no-namespace    do not create a network namespace for the collector
      --events=N        number of event types of the simulated driver; default 20
      --grace=TIME      for this time after the first signal, further signals do not kill the daemon; default 1s
      --verbose         report everything that happens

  -h, --help            show this help
      --version         show the version

tarn-sim prints its messages to standard error, and the table of events to standard output. SIGINT, SIGTERM and SIGHUP
are passed on to the daemon; a further signal after the grace time kills it.

A script has one command per line: "at 1.5s event link-down port 3", "every 20ms event storm 9 times", "after 1s stop".
tarn-sim(1) describes all commands.

Exit status: the daemon's own; 128 plus the number of the signal that ended it; 127 or 126 if it cannot be executed,
or cannot load the shim; 2 for wrong use, or if the simulation cannot start.
)";

// Where the daemon's command line begins: after "--".
int find_daemon(int argc, char **argv) {
  for (int i = 1; i < argc; i++) {
    if (strcmp(argv[i], "--") == 0) return i;
  }
  return argc;
}

std::uint64_t ticks_of(const char *option, const std::string &time) {
  std::string reason;
  const auto ticks = parse_time(time, &reason);
  if (!ticks) throw CLI::ValidationError(option, reason);
  return *ticks;
}

void add_options(CLI::App *app, Options *options) {
  app->add_option("--root", options->root)->type_name("DIR");
  app->add_option("--script", options->script)->type_name("FILE");
  app->add_option("--control", options->control)->type_name("SOCKET");
  app->add_option("--collector", options->collector)->type_name("PORT")->check(CLI::Range(1, 65535));
  app->add_flag("--no-namespace", options->no_namespace);
  app->add_option("--events", options->events)->type_name("N")->check(CLI::Range(1U, kMostEvents));
  const auto take_grace = [options](const std::string &time) { options->grace_ticks = ticks_of("--grace", time); };
  app->add_option_function<std::string>("--grace", take_grace)->type_name("TIME");
  app->add_flag("--verbose", options->verbose);
}

// Returns the exit status: output to a full disk fails.
int print(const std::string &text) {
  errno = 0;
  if (fputs(text.c_str(), stdout) >= 0 && fflush(stdout) == 0) return 0;
  report(std::string("standard output: ") + strerror(errno));
  return kWrong;
}

// What is wrong with a word that belongs to no option.
std::string wrong_word(const std::string &word, bool has_daemon) {
  if (word.starts_with('-')) return word + ": there is no such option";
  const std::string place = "'" + word + "' belongs to no option";
  return has_daemon ? place : place + ": a daemon stands after --, as in tarn-sim -- " + word;
}

}  // namespace

std::optional<Options> parse_options(int argc, char **argv, int *status) {
  CLI::App app("", "tarn-sim");
  app.allow_extras();
  app.set_version_flag("--version", "tarn-sim " TARN_SIM_VERSION);
  std::optional<Options> options(std::in_place);
  add_options(&app, &*options);
  const int end = find_daemon(argc, argv);
  try {
    app.parse(end, argv);
    const std::vector<std::string> extra = app.remaining();
    if (extra.empty() && end + 1 < argc) {
      options->daemon.assign(argv + end + 1, argv + argc);
      return options;
    }
    const std::string missing = "the daemon is missing: tarn-sim [OPTION]... -- DAEMON [ARG]...";
    report((extra.empty() ? missing : wrong_word(extra[0], end < argc)) + "; see tarn-sim --help");
  } catch (const CLI::CallForHelp &) {
    *status = print(kHelp);
    return std::nullopt;
  } catch (const CLI::CallForVersion &version) {
    *status = print(std::string(version.what()) + '\n');
    return std::nullopt;
  } catch (const CLI::ParseError &error) {
    report(std::string(error.what()) + "; see tarn-sim --help");
  }
  *status = kWrong;
  return std::nullopt;
}

}  // namespace tarn_sim
