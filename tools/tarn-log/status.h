// How the program ends.
#ifndef TARN_TOOLS_LOG_STATUS_H
#define TARN_TOOLS_LOG_STATUS_H

namespace tarn_log {

constexpr int kDone = 0;
constexpr int kFaulty = 1;  // --strict, and a line is malformed
constexpr int kWrong = 2;   // the command line, or a file that cannot be read

}  // namespace tarn_log

#endif
