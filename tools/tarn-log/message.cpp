#include "message.h"

#include <array>
#include <cstdio>

#include "input.h"

namespace tarn_log {

namespace {

bool is_control(const std::string &text, std::size_t at) {
  const auto c = static_cast<unsigned char>(text[at]);
  if (c < ' ' || c == 0x7f) return c != '\t';
  // U+0080 to U+009F are 0xC2 and a second byte up to 0x9F; of a terminal that reads single bytes, that byte alone.
  const bool is_alone = at == 0 || static_cast<unsigned char>(text[at - 1]) < 0x80;
  const bool is_after_c2 = at > 0 && static_cast<unsigned char>(text[at - 1]) == 0xc2;
  return c >= 0x80 && c <= 0x9f && (is_alone || is_after_c2);
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
      (void)snprintf(escape.data(), escape.size(), "\\x%02x",
                     static_cast<unsigned>(static_cast<unsigned char>(text[at])));
      shown += escape.data();
    } else {
      shown += text[at];
    }
  }
  return shown;
}

}  // namespace tarn_log
