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

TEST(SingleInstanceTest, OneHolderPerKeyInTheRuntimeFolderByDefault) {
  test::TempDir tmp;
  test::EnvVar run("XDG_RUNTIME_DIR", tmp.path());
  auto first = std::make_unique<SingleInstanceLock>("QuillonRavelin2");
  EXPECT_TRUE(first->acquired());
  EXPECT_EQ(access((tmp / "QuillonRavelin2.lock").c_str(), F_OK), 0);
  EXPECT_FALSE(SingleInstanceLock("QuillonRavelin2", tmp.path()).acquired());
  EXPECT_TRUE(SingleInstanceLock("AnotherKey", tmp.path()).acquired());
  // A program started while the lock is held does not inherit it.
  const auto child = StartHidden({"sleep", "600"});
  ASSERT_TRUE(child.started);
  first.reset();
  EXPECT_TRUE(SingleInstanceLock("QuillonRavelin2", tmp.path()).acquired());
  kill(child.pid, SIGKILL);
  WaitChild(child.pid);
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
