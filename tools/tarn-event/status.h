// How the program ends.
#ifndef TARN_TOOLS_EVENT_STATUS_H
#define TARN_TOOLS_EVENT_STATUS_H

namespace tarn_event {

constexpr int kDone = 0;
constexpr int kNotListening = 1;  // status: the daemon does not wait for events
constexpr int kWrong = 2;         // the command line, a line that was refused, or no simulation to talk to

}  // namespace tarn_event

#endif
