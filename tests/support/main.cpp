// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The main function of the test programs.
//
// By default they run their tests like any GoogleTest program; CTest starts one for each test, so each has fresh global
// state. Without CTest, as on the virtual target, TARN_TEST_FORK=FILE in the environment has the same effect from one
// start: the program forks for each test and writes the results to FILE, one line for each test,
//
//   passed|skipped|failed SUITE.TEST MILLISECONDS HOW
//
// where HOW is "exit N", "signal N" or "hang". The output of a test that did not pass follows, each line after "| ".
// The last line is "done N", the number of tests: a file without it was cut short. TARN_TEST_SHARD=K/N runs only every
// Nth test, from the Kth, counted from 0: N starts share the tests. TARN_TEST_ONLY=TEXT runs only tests whose name
// contains TEXT.
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>

// pthread_cancel loads the unwinder, and libc keeps what it has allocated for that. Read by the leak sanitizer, if
// there.
extern "C" const char *__lsan_default_suppressions();
extern "C" const char *__lsan_default_suppressions() { return "leak:_dl_map_object_deps\n"; }

namespace {

constexpr int kExitSkipped = 77;
constexpr time_t kHangLimitS = 300;

[[noreturn]] void run_in_child(const std::string &name, int output) {
  dup2(output, STDOUT_FILENO);
  dup2(output, STDERR_FILENO);
  close(output);
  GTEST_FLAG_SET(filter, name);
  const int result = RUN_ALL_TESTS();
  const bool skipped = testing::UnitTest::GetInstance()->skipped_test_count() > 0;
  exit(result == 0 && skipped ? kExitSkipped : result);
}

// TARN_TEST_HANG_LIMIT_S sets another limit, for a test that takes longer.
time_t hang_limit_s() {
  const char *seconds = getenv("TARN_TEST_HANG_LIMIT_S");
  return seconds == nullptr ? kHangLimitS : atol(seconds);
}

// The child's wait status; -1 if it had to be killed.
int wait_for(pid_t child, const sigset_t &child_ended) {
  const timespec limit = {.tv_sec = hang_limit_s(), .tv_nsec = 0};
  int status = 0;
  if (sigtimedwait(&child_ended, nullptr, &limit) < 0) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return -1;
  }
  waitpid(child, &status, 0);
  return status;
}

std::string outcome(int status) {
  if (status == -1) return "hang";
  if (WIFSIGNALED(status)) return "signal " + std::to_string(WTERMSIG(status));
  return "exit " + std::to_string(WEXITSTATUS(status));
}

long milliseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

void copy_output(int output, FILE *results) {
  FILE *text = fdopen(output, "r");
  char line[4096];
  rewind(text);
  while (fgets(line, sizeof line, text) != nullptr) {
    fprintf(results, "| %s", line);
    if (line[std::char_traits<char>::length(line) - 1] != '\n') fputc('\n', results);
  }
  fclose(text);
}

bool run_one(const std::string &name, FILE *results) {
  sigset_t child_ended, before;
  sigemptyset(&child_ended);
  sigaddset(&child_ended, SIGCHLD);
  sigprocmask(SIG_BLOCK, &child_ended, &before);
  const int output = memfd_create("output", 0);
  fflush(nullptr);
  const long start = milliseconds();
  const pid_t child = fork();
  if (child == 0) {
    sigprocmask(SIG_SETMASK, &before, nullptr);
    run_in_child(name, output);
  }
  const int status = wait_for(child, child_ended);
  const bool passed = status == 0;
  const bool skipped = status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == kExitSkipped;
  fprintf(results, "%s %s %ld %s\n",
          passed    ? "passed"
          : skipped ? "skipped"
                    : "failed",
          name.c_str(), milliseconds() - start, outcome(status).c_str());
  if (!passed) copy_output(output, results);
  if (passed) close(output);
  fflush(results);
  return passed || skipped;
}

// The tests that this process runs.
struct Shard {
  bool is_one() const { return index >= 0 && index < count; }
  int index = 0;
  int count = 1;
};

Shard shard() {
  Shard shard;
  const char *text = getenv("TARN_TEST_SHARD");
  if (text != nullptr && (sscanf(text, "%d/%d", &shard.index, &shard.count) != 2 || !shard.is_one())) {
    fprintf(stderr, "TARN_TEST_SHARD is not K/N with K below N: %s\n", text);
    exit(2);
  }
  return shard;
}

// Returns the exit code.
int run_each_in_a_fork(const char *file) {
  FILE *results = fopen(file, "we");
  if (results == nullptr) {
    perror(file);
    return 2;
  }
  const Shard mine = shard();
  int number = 0, run = 0;
  bool all_passed = true;
  const char *only = getenv("TARN_TEST_ONLY");
  const testing::UnitTest &all = *testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); i++) {
    const testing::TestSuite &suite = *all.GetTestSuite(i);
    for (int k = 0; k < suite.total_test_count(); k++) {
      const std::string name = std::string(suite.name()) + '.' + suite.GetTestInfo(k)->name();
      if (only != nullptr && name.find(only) == std::string::npos) continue;
      if (number++ % mine.count != mine.index) continue;
      run++;
      all_passed &= run_one(name, results);
    }
  }
  fprintf(results, "done %d\n", run);
  fclose(results);
  return all_passed ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
  testing::InitGoogleMock(&argc, argv);
  const char *file = getenv("TARN_TEST_FORK");
  return file == nullptr ? RUN_ALL_TESTS() : run_each_in_a_fork(file);
}
