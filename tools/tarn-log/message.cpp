#include "message.h"

#include <array>
#include <cstdio>

#include "input.h"

namespace tarn_log {

namespace {

unsigned byte_at(const std::string &text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

bool is_high_control(unsigned byte) { return byte >= 0x80 && byte <= 0x9f; }

// U+0080 to U+009F are controls too: 0xC2 and such a byte, or on a terminal of single bytes that byte alone.
bool is_control(const std::string &text, std::size_t at) {
  const unsigned byte = byte_at(text, at);
  const unsigned before = at > 0 ? byte_at(text, at - 1) : 0;
  if (byte < ' ' || byte == 0x7f) return byte != '\t';
  if (byte == 0xc2) return is_high_control(byte_at(text, at + 1));
  return is_high_control(byte) && (before < 0x80 || before == 0xc2);
}

}  // namespace

void tell(const std::string &text) { (void)fprintf(stderr, "tarn-log: %s\n", printable(text).c_str()); }

void tell_fault(const std::string &path, const Fault &fault) {
  tell(shown_name(path) + ": line " + std::to_string(fault.line) + ", byte " + std::to_string(fault.offset) + ": " +
       fault.reason);
}

std::string printable(const std::string &text) {
  std::string shown;
  for (std::size_t at = 0; at < text.size(); at++) {
    if (is_control(text, at)) {
      std::array<char, 8> escape = {};
      (void)snprintf(escape.data(), escape.size(), "\\x%02x", byte_at(text, at));
      shown += escape.data();
    } else {
      shown += text[at];
    }
  }
  return shown;
}

}  // namespace tarn_log
