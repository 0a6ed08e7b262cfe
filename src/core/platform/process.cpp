#include "platform/process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

namespace qr {

namespace {

std::mutex& AbandonedLock() {
  static std::mutex lock;
  return lock;
}

std::vector<pid_t>& Abandoned() {
  static std::vector<pid_t> pids;
  return pids;
}

// The exit status as a shell reports it: the code of a normal exit, 128 plus the signal of a
// killed child.
int StatusOf(int raw) {
  if (WIFEXITED(raw)) return WEXITSTATUS(raw);
  if (WIFSIGNALED(raw)) return 128 + WTERMSIG(raw);
  return -1;
}

// RAII holders, so every path out of StartHidden gives back what posix_spawn set up.
struct FileActions {
  posix_spawn_file_actions_t actions{};
  FileActions() { posix_spawn_file_actions_init(&actions); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions); }
};

struct SpawnAttributes {
  posix_spawnattr_t attributes{};
  SpawnAttributes() { posix_spawnattr_init(&attributes); }
  ~SpawnAttributes() { posix_spawnattr_destroy(&attributes); }
};

}  // namespace

std::vector<std::string> SplitCommandLine(std::string_view text) {
  std::vector<std::string> tokens;
  std::string current;
  bool inQuotes = false;
  for (char c : text) {
    if (c == '"') {
      current += c;
      inQuotes = !inQuotes;
    } else if (c == ' ' && !inQuotes) {
      tokens.push_back(std::move(current));
      current.clear();
    } else {
      current += c;
    }
  }
  tokens.push_back(std::move(current));
  return tokens;
}

StartResult StartHidden(const std::vector<std::string>& argv) {
  StartResult result;
  // A chance to collect children given up on earlier, so none lingers as a zombie.
  ReapAbandonedChildren();
  if (argv.empty() || argv[0].empty()) {
    result.error = EINVAL;
    return result;
  }
  FileActions files;
  posix_spawn_file_actions_addopen(&files.actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&files.actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&files.actions, 2, "/dev/null", O_WRONLY, 0);

  // The child starts clean: no blocked or ignored signals inherited from us, and a process
  // group of its own, so a Ctrl-C meant for the program does not kill its tools behind its back.
  SpawnAttributes attrs;
  sigset_t none;
  sigset_t all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attrs.attributes, &none);
  posix_spawnattr_setsigdefault(&attrs.attributes, &all);
  posix_spawnattr_setpgroup(&attrs.attributes, 0);
  posix_spawnattr_setflags(
      &attrs.attributes,
      static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP));

  std::vector<char*> args;
  args.reserve(argv.size() + 1);
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);

  pid_t pid = -1;
  const int rc =
      posix_spawnp(&pid, args[0], &files.actions, &attrs.attributes, args.data(), environ);
  if (rc != 0) {
    result.error = rc;
    return result;
  }
  result.started = true;
  result.pid = pid;
  return result;
}

StartResult StartShellHidden(const std::string& command) {
  return StartHidden({"/bin/sh", "-c", command});
}

bool ChildEnded(pid_t pid, int* exitStatus) {
  int raw = 0;
  pid_t r = 0;
  do {
    r = waitpid(pid, &raw, WNOHANG);
  } while (r < 0 && errno == EINTR);
  if (r == 0) return false;
  if (exitStatus != nullptr) *exitStatus = r == pid ? StatusOf(raw) : -1;
  // No such child (already reaped, or never ours) has ended as far as a waiter can tell.
  return true;
}

int WaitChild(pid_t pid) {
  int raw = 0;
  pid_t r = 0;
  do {
    r = waitpid(pid, &raw, 0);
  } while (r < 0 && errno == EINTR);
  return r == pid ? StatusOf(raw) : -1;
}

void AbandonChild(pid_t pid) {
  if (pid <= 0) return;
  std::lock_guard<std::mutex> guard(AbandonedLock());
  Abandoned().push_back(pid);
}

void ReapAbandonedChildren() {
  std::lock_guard<std::mutex> guard(AbandonedLock());
  auto& pids = Abandoned();
  std::erase_if(pids, [](pid_t pid) {
    // Only the pids given up on: a wait for any child would steal other waiters' statuses.
    int raw = 0;
    pid_t r = 0;
    do {
      r = waitpid(pid, &raw, WNOHANG);
    } while (r < 0 && errno == EINTR);
    return r != 0;
  });
}

bool ProbeProgram(const std::vector<std::string>& argv) {
  const StartResult started = StartHidden(argv);
  if (!started.started) return false;
  WaitChild(started.pid);
  return true;
}

}  // namespace qr
