#pragma once
// Shared by the tests: a reporter that records, an environment guard, and a way to run
// one case in a child process (as user nobody, or in a mount namespace of its own) and read back
// what it saw.
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/report.h"

namespace qr::test {

class RecordingReporter : public Reporter {
 public:
  bool silent = false;
  std::vector<std::pair<std::string, Icon>> boxes;
  std::vector<std::string> silentLines;

  bool SilentOption() const override { return silent; }
  void ShowMessage(const std::string& text, Icon icon) override { boxes.emplace_back(text, icon); }
  void WriteSilentLog(const std::string& text) override { silentLines.push_back(text); }
};

// Sets (or, with nullopt, removes) an environment variable for the life of the guard.
class EnvVar {
 public:
  EnvVar(const char* name, std::optional<std::string> value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    Set(value);
  }
  ~EnvVar() { Set(old_); }
  EnvVar(const EnvVar&) = delete;
  EnvVar& operator=(const EnvVar&) = delete;

 private:
  void Set(const std::optional<std::string>& value) {
    value ? setenv(name_, value->c_str(), 1) : unsetenv(name_);
  }
  const char* name_;
  std::optional<std::string> old_;
};

// Exit codes a child uses to say its case could not be set up (as opposed to having failed).
inline constexpr int kChildCannotSetUp = 77;

struct ChildOutcome {
  int exitCode = -1;   // the child's exit code, or 128 + signal
  std::string output;  // what the child put in `out`
};

// Runs `body` in a forked child. The child reports through `out` and its return value; nothing
// it does (privileges, namespaces, seccomp) reaches this process.
inline ChildOutcome RunInChild(const std::function<int(std::string& out)>& body) {
  int fds[2];
  ChildOutcome outcome;
  const pid_t pid = pipe(fds) == 0 ? fork() : -2;
  if (pid == 0) {
    close(fds[0]);
    std::string out;
    const int code = body(out);
    for (size_t done = 0; done < out.size();) {
      const ssize_t n = write(fds[1], out.data() + done, out.size() - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
    _exit(code);
  }
  if (pid == -2) return outcome;
  close(fds[1]);
  char buffer[4096];
  ssize_t n = 0;
  while ((n = read(fds[0], buffer, sizeof buffer)) > 0) outcome.output.append(buffer, size_t(n));
  close(fds[0]);
  int status = 0;
  if (pid > 0 && waitpid(pid, &status, 0) == pid) {
    outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return outcome;
}

// True when this process can become user nobody (it runs as root and nobody exists).
inline bool CanBecomeNobody() { return geteuid() == 0 && getpwnam("nobody") != nullptr; }

// In a child: drops every privilege for those of user nobody. False when that failed.
inline bool BecomeNobody() {
  const struct passwd* pw = getpwnam("nobody");
  return pw != nullptr && setgroups(0, nullptr) == 0 &&
         setresgid(pw->pw_gid, pw->pw_gid, pw->pw_gid) == 0 &&
         setresuid(pw->pw_uid, pw->pw_uid, pw->pw_uid) == 0 && geteuid() == pw->pw_uid;
}

// Runs `body` in a forked child as user nobody; kChildCannotSetUp when that can't be done.
inline ChildOutcome RunAsNobody(const std::function<int(std::string& out)>& body) {
  return RunInChild([&](std::string& out) { return BecomeNobody() ? body(out) : kChildCannotSetUp; });
}

// In a child: a mount namespace of its own whose mounts never propagate back.
inline bool EnterPrivateMountNamespace() {
  return unshare(CLONE_NEWNS) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace qr::test
