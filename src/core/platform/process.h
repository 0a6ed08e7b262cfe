#pragma once
// Starting other programs without a window or shell of their own.
#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace qr {

// The command-line splitter: a double quote is kept in the token and toggles quoting; a blank
// outside quotes ends the token (two blanks in a row give an empty token); the last token is
// always stored.
std::vector<std::string> SplitCommandLine(std::string_view text);

struct StartResult {
  bool started = false;
  int error = 0;  // errno when not started
  pid_t pid = -1;
};

// posix_spawnp of argv[0] through the search path, standard input, output and error on
// /dev/null. No shell is involved.
StartResult StartHidden(const std::vector<std::string>& argv);
// Runs `command` through /bin/sh -c, hidden, and does not wait for it.
StartResult StartShellHidden(const std::string& command);

// Non-blocking look at a child: true once it has ended (and is reaped), with its exit status.
bool ChildEnded(pid_t pid, int* exitStatus = nullptr);
// Waits for a child to end and reaps it; returns its exit status, or -1.
int WaitChild(pid_t pid);
// A child the program stops waiting for: reaped later by ReapAbandonedChildren.
void AbandonChild(pid_t pid);
void ReapAbandonedChildren();

// True when `program` can be started from the search path ("ROBOCOPY" with "/?", say); the
// started child is waited for.
bool ProbeProgram(const std::vector<std::string>& argv);

}  // namespace qr
