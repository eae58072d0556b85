// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "console.h"

namespace tarn_sim {

namespace {

bool make_pipe(Descriptor *reader, Descriptor *writer) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return false;
  *reader = Descriptor(ends[0]);
  *writer = Descriptor(ends[1]);
  return true;
}

bool read_all(const Descriptor &pipe, void *data, std::size_t size) {
  ssize_t got;
  do got = read(pipe.get(), data, size);
  while (got < 0 && errno == EINTR);
  return got == static_cast<ssize_t>(size);
}

}  // namespace

Daemon::Daemon(std::vector<std::string> command, const std::vector<std::string> &environment, const sigset_t &mask)
    : command_(std::move(command)) {
  const pid_t launcher = getpid();
  if (make_pipe(&wait_, &go_) && make_pipe(&failed_, &fail_)) pid_ = fork();
  if (pid_ == 0) be_child(environment, mask, launcher);
  if (pid_ < 0) report(std::string("cannot make a process: ") + strerror(errno));
  is_running_ = pid_ > 0;
}

Daemon::~Daemon() {
  if (!is_running_) return;
  (void)kill(pid_, SIGKILL);
  (void)waitpid(pid_, nullptr, 0);
}

void Daemon::be_child(const std::vector<std::string> &environment, const sigset_t &mask, pid_t launcher) {
  // If the launcher dies, the daemon gets SIGTERM. If the launcher died before this call, the pipe shows it.
  (void)prctl(PR_SET_PDEATHSIG, SIGTERM);
  go_.reset();
  char byte;
  if (!read_all(wait_, &byte, 1) || getppid() != launcher) _exit(kNotExecuted);
  (void)std::signal(SIGPIPE, SIG_DFL);
  (void)sigprocmask(SIG_SETMASK, &mask, nullptr);
  for (const std::string &variable : environment) (void)putenv(const_cast<char *>(variable.c_str()));
  std::vector<char *> words;
  for (std::string &word : command_) words.push_back(word.data());
  words.push_back(nullptr);
  (void)execvp(words[0], words.data());
  const int error = errno;
  (void)!write(fail_.get(), &error, sizeof error);
  _exit(error == ENOENT ? kNotFound : kNotExecuted);
}

void Daemon::execute() {
  if (!is_running_) return;
  wait_.reset();
  fail_.reset();
  (void)!write(go_.get(), "", 1);  // if the child has ended, the read below shows it
  go_.reset();
  int error = 0;
  if (!read_all(failed_, &error, sizeof error)) return;  // success: execution has closed the pipe
  (void)waitpid(pid_, &wait_status_, 0);
  is_running_ = false;
  exit_status_ = error == ENOENT ? kNotFound : kNotExecuted;
  report(name() + ": " + strerror(error));
}

void Daemon::look() {
  if (!is_running_ || waitpid(pid_, &wait_status_, WNOHANG) != pid_) return;
  is_running_ = false;
  exit_status_ = WIFEXITED(wait_status_) ? WEXITSTATUS(wait_status_) : kBySignal + WTERMSIG(wait_status_);
}

void Daemon::signal(int number) const {
  if (is_running_) (void)kill(pid_, number);
}

std::string Daemon::end() const {
  if (WIFEXITED(wait_status_)) return name() + " ended with status " + std::to_string(WEXITSTATUS(wait_status_));
  const int number = WTERMSIG(wait_status_);
  return name() + " was ended by signal " + std::to_string(number) + " (" + strsignal(number) + ')';
}

}  // namespace tarn_sim
