#include "platform/single_instance.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <memory>

#include "platform/process.h"
#include "support/child_process.h"
#include "support/temp_dir.h"

namespace qr {
namespace {

using test::EnvVar;
using test::TempDir;

TEST(SingleInstanceTest, OneHolderPerKeyInTheRuntimeFolderByDefault) {
  TempDir tmp;
  EnvVar run("XDG_RUNTIME_DIR", tmp.path());
  auto first = std::make_unique<SingleInstanceLock>("QuillonRavelin2");
  EXPECT_TRUE(first->acquired());
  EXPECT_EQ(access((tmp / "QuillonRavelin2.lock").c_str(), F_OK), 0);

  EXPECT_FALSE(SingleInstanceLock("QuillonRavelin2", tmp.path()).acquired());
  EXPECT_TRUE(SingleInstanceLock("AnotherKey", tmp.path()).acquired());
  first.reset();
  EXPECT_TRUE(SingleInstanceLock("QuillonRavelin2", tmp.path()).acquired());
}

TEST(SingleInstanceTest, AKilledHolderBlocksNoOne) {
  TempDir tmp;
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t holder = fork();
  ASSERT_GE(holder, 0);
  if (holder == 0) {
    close(ready[0]);
    SingleInstanceLock lock("key", tmp.path());
    const char answer = lock.acquired() ? 'y' : 'n';
    if (write(ready[1], &answer, 1) != 1) _exit(1);
    pause();
    _exit(0);
  }
  close(ready[1]);
  char answer = 0;
  ASSERT_EQ(read(ready[0], &answer, 1), 1);
  close(ready[0]);
  EXPECT_EQ(answer, 'y');
  EXPECT_FALSE(SingleInstanceLock("key", tmp.path()).acquired());
  kill(holder, SIGKILL);
  waitpid(holder, nullptr, 0);
  EXPECT_TRUE(SingleInstanceLock("key", tmp.path()).acquired());
}

TEST(SingleInstanceTest, StartedProgramsDoNotInheritTheLock) {
  TempDir tmp;
  auto lock = std::make_unique<SingleInstanceLock>("key", tmp.path());
  ASSERT_TRUE(lock->acquired());
  const auto child = StartHidden({"sleep", "600"});
  ASSERT_TRUE(child.started);
  lock.reset();
  // The tool still runs; had it inherited the descriptor, the lock would still be held.
  EXPECT_TRUE(SingleInstanceLock("key", tmp.path()).acquired());
  kill(child.pid, SIGKILL);
  WaitChild(child.pid);
}

}  // namespace
}  // namespace qr
