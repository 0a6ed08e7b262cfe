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

TEST(SingleInstanceTest, AHolderThatEndedWithoutLettingGoBlocksNoOne) {
  TempDir tmp;
  const auto holder = test::RunInChild([&](std::string&) {
    // Never destroyed: the process ends holding the lock, as a killed one would.
    const auto* lock = new SingleInstanceLock("key", tmp.path());
    return lock->acquired() ? 0 : 1;
  });
  ASSERT_EQ(holder.exitCode, 0);
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
