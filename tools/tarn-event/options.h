// What the command line asks for.
#ifndef TARN_TOOLS_EVENT_OPTIONS_H
#define TARN_TOOLS_EVENT_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarn_event {

enum class Command : std::uint8_t { kLines, kStatus, kWatch };

struct Options {
  std::string control;  // the socket's path
  Command command = Command::kLines;
  std::vector<std::string> lines;  // kLines: to be sent, one after another
  bool from_input = false;         // kLines: those of standard input instead
  bool json = false;
  bool all = false;
  int interval_ms = 1000;
  unsigned long looks = 0;  // 0: without end
};

// Nothing when the program is to end with `status`: the help was shown, or what is wrong with the command line.
std::optional<Options> parse_options(int argc, const char *const *argv, int *status);

}  // namespace tarn_event

#endif
