// The state of the log, and what every source of it asks.

#include "internal.h"

namespace tarn::log {

mup_log_ctrl control;

bool is_missing(const void *argument, const char *function, int line) {
  if (argument == nullptr) mu_printf("%s() _%d_: assert fail\n", function, line);
  return argument == nullptr;
}

const char *module_name(u8 module) { return module < control.module_num ? control.modules[module].name : ""; }

}  // namespace tarn::log

mup_log_ctrl *mup_log_ctrl_get() { return &tarn::log::control; }
