// What the tool prints.
#ifndef TARN_TOOLS_EVENT_OUTPUT_H
#define TARN_TOOLS_EVENT_OUTPUT_H

#include <string>

namespace tarn_event {

// On standard output; a failure shows when it is flushed.
void print(const std::string &text);

// False after telling that not all could be written.
bool flush_output();

// "tarn-event: TEXT" on standard error.
void tell(const std::string &text);

}  // namespace tarn_event

#endif
