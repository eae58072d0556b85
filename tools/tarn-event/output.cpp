#include "output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace tarn_event {

void print(const std::string &text) { (void)fwrite(text.data(), 1, text.size(), stdout); }

bool flush_output() {
  if (fflush(stdout) == 0 && ferror(stdout) == 0) return true;
  tell(std::string("standard output: ") + strerror(errno != 0 ? errno : EIO));
  return false;
}

void tell(const std::string &text) { (void)fprintf(stderr, "tarn-event: %s\n", text.c_str()); }

}  // namespace tarn_event
