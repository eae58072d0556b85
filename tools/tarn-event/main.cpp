// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// tarn-event: events and kernel messages for a daemon that runs under tarn-sim.

#include <csignal>
#include <iostream>
#include <string>

#include "common/output.h"
#include "common/program.h"
#include "common/status.h"
#include "connection.h"
#include "options.h"
#include "watch.h"

namespace {

using namespace tarn_tools;
using namespace tarn_tools::event;

// Prints the answer of the simulation without "ok".
void send(Connection *connection, const std::string &line) {
  for (const std::string &part : connection->ask(line)) print_line(part);
}

// A refusal names the column of the line. The user does not see a line that was made here, so the column is omitted.
std::string without_column(const std::string &refusal) {
  constexpr char kColumn[] = "column ";
  const std::size_t colon = refusal.find(": ");
  return refusal.rfind(kColumn, 0) == 0 && colon != std::string::npos ? refusal.substr(colon + 2) : refusal;
}

void send_lines(Connection *connection, const Options &options) {
  try {
    for (const std::string &line : options.lines) send(connection, line);
  } catch (const Refusal &refusal) {
    if (options.are_typed) throw;
    throw Refusal(without_column(refusal.what()));
  }
}

void send_input(Connection *connection) {
  std::string line;
  for (unsigned long number = 1; std::getline(std::cin, line); number++) {
    try {
      send(connection, line);
    } catch (const Refusal &refusal) {
      throw Refusal("standard input: line " + std::to_string(number) + ": " + refusal.what());
    }
  }
}

int run(int argc, char **argv) {
  (void)signal(SIGPIPE, SIG_IGN);  // the write then fails with EPIPE
  const auto options = parse_options(argc, argv);
  if (!options) return kDone;
  Connection connection(options->control);
  if (options->action == Action::kStatus) return show(&connection, *options);
  if (options->action == Action::kWatch) return watch(&connection, *options);
  // If a line is refused, the lines before it have been run.
  if (options->from_input) {
    send_input(&connection);
  } else {
    send_lines(&connection, *options);
  }
  return kDone;
}

}  // namespace

int main(int argc, char **argv) { return run_program("tarn-event", argc, argv, run); }
