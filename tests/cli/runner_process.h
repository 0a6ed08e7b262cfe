#pragma once
// Starting the built ravelin-run as a child, for the tests that run the real program.
#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/child_process.h"

namespace qr::test {

// Starts RAVELIN_RUN_BINARY with `args` in `cwd`, standard input on /dev/null, standard output
// and error on the given descriptors (-1: /dev/null); `asNobody` drops to user nobody first.
// The child's id, or -1.
inline pid_t StartRunner(const std::vector<std::string>& args, const std::string& cwd, int out,
                         int err, bool asNobody = false) {
  pid_t pid = fork();
  if (pid != 0) return pid;
  int devNull = open("/dev/null", O_RDWR);
  if (devNull < 0 || chdir(cwd.c_str()) != 0) _exit(127);
  dup2(devNull, 0);
  dup2(out >= 0 ? out : devNull, 1);
  dup2(err >= 0 ? err : devNull, 2);
  if (asNobody && !BecomeNobody()) _exit(kChildCannotSetUp);
  std::vector<char*> argv;
  std::string program = RAVELIN_RUN_BINARY;
  argv.push_back(program.data());
  std::vector<std::string> copy = args;
  for (std::string& a : copy) argv.push_back(a.data());
  argv.push_back(nullptr);
  execv(program.c_str(), argv.data());
  _exit(127);
}

}  // namespace qr::test
