#pragma once
// Starting the built ravelin-run as a child, for the tests that run the real program.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr::test {

// Starts `program` with `args` in `cwd`, standard input on /dev/null, standard output and error
// on the given descriptors (-1: /dev/null), as user nobody if `asNobody`. The child's id, or -1.
inline pid_t StartRunner(const std::vector<std::string>& args, const std::string& cwd, int out,
                         int err, bool asNobody = false,
                         std::string program = RAVELIN_RUN_BINARY) {
  pid_t pid = fork();
  if (pid != 0) return pid;
  int devNull = open("/dev/null", O_RDWR);
  if (devNull < 0 || chdir(cwd.c_str()) != 0) _exit(127);
  dup2(devNull, 0);
  dup2(out >= 0 ? out : devNull, 1);
  dup2(err >= 0 ? err : devNull, 2);
  if (asNobody && !BecomeNobody()) _exit(kChildCannotSetUp);
  std::vector<char*> argv{program.data()};
  std::vector<std::string> copy = args;
  for (std::string& a : copy) argv.push_back(a.data());
  argv.push_back(nullptr);
  execv(program.c_str(), argv.data());
  _exit(127);
}

// The child's exit status, or 128 + the signal that ended it.
inline int WaitFor(pid_t pid) {
  int ws = 0;
  if (pid <= 0 || waitpid(pid, &ws, 0) != pid) return -1;
  return WIFEXITED(ws) ? WEXITSTATUS(ws) : 128 + WTERMSIG(ws);
}

struct Ran {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs the program to its end (see StartRunner) and gives back what it wrote.
inline Ran RunRunner(const std::vector<std::string>& args, const std::string& cwd,
                     bool asNobody = false, const std::string& program = RAVELIN_RUN_BINARY) {
  TempDir io;
  const std::string outPath = io / "out", errPath = io / "err";
  const int o = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const int e = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const pid_t pid = StartRunner(args, cwd, o, e, asNobody, program);
  close(o);
  close(e);
  Ran r;
  r.status = WaitFor(pid);
  r.out = ReadBytes(outPath);
  r.err = ReadBytes(errPath);
  return r;
}

inline bool Has(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

}  // namespace qr::test
