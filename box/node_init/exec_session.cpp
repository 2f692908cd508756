#include "box/node_init/exec_session.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

namespace kalo::box {
namespace {

constexpr int kNotFound = 127;

// The child's side of the fork: only async-signal-safe calls, and never back into the caller.
[[noreturn]] void RunInChild(char* const* argv, char* const* environment, const int (&fds)[3]) {
  for (int i = 0; i < 3; ++i) dup2(fds[i], i);
  setsid();
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  signal(SIGPIPE, SIG_DFL);
  execvpe(argv[0], argv, environment);
  _exit(kNotFound);
}

pid_t Start(std::vector<std::string> argv, const std::vector<UniqueFd>& fds) {
  std::vector<char*> words;
  words.reserve(argv.size() + 1);
  for (std::string& word : argv) words.push_back(word.data());
  words.push_back(nullptr);
  std::vector<std::string> variables = {
      "PATH=/usr/kalo/sbin:/usr/kalo/bin:/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root",
      "LANG=C.UTF-8"};
  std::vector<char*> environment;
  environment.reserve(variables.size() + 1);
  for (std::string& variable : variables) environment.push_back(variable.data());
  environment.push_back(nullptr);
  // Copies above 2, so that none is overwritten before it was used.
  const UniqueFd copies[3] = {UniqueFd(fcntl(fds[0].Get(), F_DUPFD_CLOEXEC, 10)),
                              UniqueFd(fcntl(fds[1].Get(), F_DUPFD_CLOEXEC, 10)),
                              UniqueFd(fcntl(fds[2].Get(), F_DUPFD_CLOEXEC, 10))};
  const int numbers[3] = {copies[0].Get(), copies[1].Get(), copies[2].Get()};
  const pid_t pid = fork();
  if (pid == 0) RunInChild(words.data(), environment.data(), numbers);
  return pid;
}

}  // namespace

ExecSession::ExecSession(ControlChannel channel, const std::vector<std::string>& argv,
                         const std::vector<UniqueFd>& fds)
    : channel_(std::move(channel)) {
  if (!argv.empty() && fds.size() == 3) pid_ = Start(argv, fds);
  if (pid_ > 0) return;
  pid_ = 0;
  OnExit(kNotFound);
}

ExecSession::~ExecSession() {
  if (pid_ <= 0) return;
  kill(-pid_, SIGKILL);
  kill(pid_, SIGKILL);  // before it had a session of its own
}

void ExecSession::OnExit(int status) {
  pid_ = 0;
  Json::Value answer(Json::objectValue);
  answer["status"] = status;
  static_cast<void>(channel_.Send(answer));
}

}  // namespace kalo::box
