#include "platform/process.h"
#include "platform/single_instance.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <thread>

#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::ReadBytes;
using test::TempDir;
using Tokens = std::vector<std::string>;

// Polls `done` a bounded number of times; the bound only keeps a broken build from hanging.
template <typename Done>
bool Eventually(Done done) {
  for (int i = 0; i < 1000; ++i) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

bool ProcessGone(pid_t pid) { return kill(pid, 0) != 0 && errno == ESRCH; }

TEST(SplitCommandLineTest, BlanksEndTokensAndQuotesStay) {
  const std::pair<const char*, Tokens> cases[] = {
      {"", {""}}, {"-q  -silent", {"-q", "", "-silent"}}, {" -q ", {"", "-q", ""}},
      {"-lsw=\"/a b/x.lsw\" -resume", {"-lsw=\"/a b/x.lsw\"", "-resume"}},
      {"\"a b\"c d", {"\"a b\"c", "d"}},
      {"x \"y z", {"x", "\"y z"}},  // an unclosed quote runs to the end
      {"a\tb", {"a\tb"}},           // only blanks separate
  };
  for (const auto& [line, tokens] : cases) EXPECT_EQ(SplitCommandLine(line), tokens) << line;
}

TEST(StartHiddenTest, RunsWithoutAShellArgumentsAsTheyAreStreamsOnDevNull) {
  TempDir tmp;
  const std::string out = tmp / "seen.txt";
  // The shell here is the program started and $$ its own pid, so these are the streams it was
  // given; the output is redirected only for printf, after they have been read.
  const auto started = StartHidden(
      {"sh", "-c",
       "x=$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2); o=$1; shift; "
       "printf '%s\\n' \"$x\" > \"$o\"; printf '%s|' \"$@\" >> \"$o\"; exit 3",
       "sh", out, "a b", "\"q\"", "$HOME", "*", ""});
  ASSERT_TRUE(started.started) << started.error;
  EXPECT_EQ(WaitChild(started.pid), 3);
  EXPECT_EQ(ReadBytes(out), "/dev/null\n/dev/null\n/dev/null\na b|\"q\"|$HOME|*||");

  const auto missing = StartHidden({"ravelin-no-such-program-anywhere"});
  EXPECT_FALSE(missing.started);
  EXPECT_EQ(missing.error, ENOENT);
  EXPECT_FALSE(ProbeProgram({"ravelin-no-such-program-anywhere", "/?"}));
  EXPECT_TRUE(ProbeProgram({"true"}));
  // A shell command runs through /bin/sh.
  const auto shell = StartShellHidden("cd '" + tmp.path() + "' && echo done > 'it''s.txt'; exit 7");
  ASSERT_TRUE(shell.started);
  EXPECT_EQ(WaitChild(shell.pid), 7);
  EXPECT_EQ(ReadBytes(tmp / "its.txt"), "done\n");
}

TEST(ChildTest, PolledAbandonedAndUntouchedChildren) {
  TempDir tmp;
  const std::string flag = tmp / "flag";
  const Tokens waiter = {"sh", "-c", "while [ ! -e \"$1\" ]; do sleep 0.01; done; exit 5", "sh",
                         flag};
  const auto polled = StartHidden(waiter);
  const auto abandoned = StartHidden(waiter);
  const auto kept = StartHidden({"sh", "-c", "exit 9"});
  ASSERT_TRUE(polled.started && abandoned.started && kept.started);
  int status = -2;
  EXPECT_FALSE(ChildEnded(polled.pid, &status)) << "the child cannot end before the flag exists";
  AbandonChild(abandoned.pid);
  ReapAbandonedChildren();
  EXPECT_FALSE(ProcessGone(abandoned.pid)) << "still running, so not reaped yet";

  tmp.WriteFile("flag", "");
  EXPECT_TRUE(Eventually([&] { return ChildEnded(polled.pid, &status); }));
  EXPECT_EQ(status, 5);
  EXPECT_TRUE(ProcessGone(polled.pid)) << "an ended child must be reaped";
  // Until reaped, an ended child stays as a zombie that kill(0) still finds.
  EXPECT_TRUE(Eventually([&] {
    ReapAbandonedChildren();
    return ProcessGone(abandoned.pid);
  }));
  // The child not given up on keeps its status for its own waiter.
  EXPECT_EQ(WaitChild(kept.pid), 9);
}

TEST(SingleInstanceTest, OneHolderPerKeyAndAStartedProgramInheritsNeitherLockNorIgnoredSignal) {
  test::TempDir tmp;
  test::EnvVar run("XDG_RUNTIME_DIR", tmp.path());
  auto first = std::make_unique<SingleInstanceLock>("QuillonRavelin2");
  EXPECT_TRUE(first->acquired());
  EXPECT_EQ(access((tmp / "QuillonRavelin2.lock").c_str(), F_OK), 0) << "in the runtime folder";
  EXPECT_FALSE(SingleInstanceLock("QuillonRavelin2", tmp.path()).acquired());
  EXPECT_TRUE(SingleInstanceLock("AnotherKey", tmp.path()).acquired());
  // An ignored SIGTERM here would otherwise stay ignored in the child across exec.
  struct sigaction ignore {};
  struct sigaction old {};
  ignore.sa_handler = SIG_IGN;
  ASSERT_EQ(sigaction(SIGTERM, &ignore, &old), 0);
  const auto child = StartHidden({"sleep", "600"});
  sigaction(SIGTERM, &old, nullptr);
  ASSERT_TRUE(child.started);
  first.reset();
  EXPECT_TRUE(SingleInstanceLock("QuillonRavelin2", tmp.path()).acquired());
  ASSERT_EQ(kill(child.pid, SIGTERM), 0);
  EXPECT_EQ(WaitChild(child.pid), 128 + SIGTERM);
  EXPECT_EQ(WaitChild(child.pid), -1) << "already reaped";
}

TEST(SingleInstanceTest, AHolderThatEndedWithoutLettingGoBlocksNoOne) {
  test::TempDir tmp;
  const auto holder = test::RunInChild([&](std::string&) {
    // Never destroyed: the process ends holding the lock, as a killed one would.
    const auto* lock = new SingleInstanceLock("key", tmp.path());
    return lock->acquired() ? 0 : 1;
  });
  ASSERT_EQ(holder.exitCode, 0);
  EXPECT_TRUE(SingleInstanceLock("key", tmp.path()).acquired());
}

}  // namespace
}  // namespace qr
