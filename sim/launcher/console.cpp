#include "console.h"

#include <unistd.h>

#include <cerrno>

namespace tarn_sim {

namespace {

bool g_verbose;  // set before there is a second thread

}  // namespace

void report(const std::string &line) {
  const std::string whole = "tarn-sim: " + line + '\n';
  std::string_view rest = whole;
  while (!rest.empty()) {
    const ssize_t written = write(STDERR_FILENO, rest.data(), rest.size());
    if (written < 0 && errno != EINTR) return;  // there is no other way to report it
    if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

void report_detail(const std::string &line) {
  if (g_verbose) report(line);
}

void set_verbose(bool verbose) { g_verbose = verbose; }

std::string readable(std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    if (byte == '\\') {
      text += "\\\\";
    } else if (value < 0x20 || value == 0x7F) {
      text += "\\x";
      text += kDigits[value >> 4];
      text += kDigits[value & 15];
    } else {
      text += byte;
    }
  }
  return text;
}

}  // namespace tarn_sim
