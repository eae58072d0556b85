// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "program.h"

#include <csignal>
#include <exception>
#include <new>
#include <string>

#include "output.h"
#include "report.h"
#include "status.h"

namespace tarn_tools {

int run_program(const char *name, int argc, char **argv, int (*body)(int argc, char **argv)) {
  // A file that grows beyond a limit is reported as any other that cannot be written.
  (void)signal(SIGXFSZ, SIG_IGN);
  set_program_name(name);
  try {
    const int status = body(argc, argv);
    flush_output();
    return status;
  } catch (const UsageError &error) {
    report(std::string(error.what()) + "; see " + name + " --help");
  } catch (const std::bad_alloc &) {
    report("not enough memory");
  } catch (const std::exception &error) {
    report(error.what());
  }
  return kWrong;
}

}  // namespace tarn_tools
