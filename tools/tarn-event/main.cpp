// tarn-event: events and kernel messages for a daemon that runs under tarn-sim.

#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>

#include "connection.h"
#include "options.h"
#include "output.h"
#include "status.h"
#include "watch.h"

using namespace tarn_event;

namespace {

// What the simulation answers before "ok" is for the user.
void send(Connection *connection, const std::string &line) {
  for (const std::string &part : connection->ask(line)) print(part + "\n");
}

// The lines before one that is refused have been done.
int send_all(Connection *connection, const Options &options) {
  if (!options.from_input) {
    for (const std::string &line : options.lines) send(connection, line);
    return flush_output() ? kDone : kWrong;
  }
  std::string line;
  for (unsigned long number = 1; std::getline(std::cin, line); number++) {
    try {
      send(connection, line);
    } catch (const Refusal &refusal) {
      throw Refusal("standard input: line " + std::to_string(number) + ": " + refusal.what());
    }
  }
  return flush_output() ? kDone : kWrong;
}

int run(const Options &options) {
  Connection connection(options.control);
  if (options.command == Command::kStatus) return show(&connection, options);
  if (options.command == Command::kWatch) return watch(&connection, options);
  return send_all(&connection, options);
}

}  // namespace

int main(int argc, char **argv) {
  try {
    (void)signal(SIGPIPE, SIG_IGN);  // it becomes an error of the write
    int status = kDone;
    const auto options = parse_options(argc, argv, &status);
    return options ? run(*options) : status;
  } catch (const std::exception &error) {  // no simulation, a refusal, no memory
    tell(error.what());
    return kWrong;
  }
}
