// A collection writes only inside its target and log folders. Both are seeded with symbolic
// links to a sibling "outside" folder (files, folders, every log's name, the database and its
// side files), the sources are named with "." and ".." parts, and every collision mode runs
// under every layout: everything outside must stay as it was, names, bytes, modes and times.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <tuple>
#include <vector>

#include "exec/run_driver.h"
#include "platform/confined_io.h"
#include "platform/paths.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;

// What a file, folder or link looks like from outside: type and mode, size, bytes, link text
// and all three times to the nanosecond (the change time moves on any write, mode or time
// change).
struct Entry {
  mode_t mode = 0;
  std::string bytes;
  std::string link;
  std::tuple<int64_t, long, int64_t, long, int64_t, long> times;
  bool operator==(const Entry&) const = default;
};

std::map<std::string, Entry> SnapshotTree(const std::string& root) {
  std::map<std::string, Entry> out;
  auto add = [&](const std::string& path) {
    struct stat st {};
    EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
    out[path] = {st.st_mode, S_ISREG(st.st_mode) ? test::ReadBytesQuietly(path) : "",
                 S_ISLNK(st.st_mode) ? fs::read_symlink(path).string() : "",
                 {st.st_atim.tv_sec, st.st_atim.tv_nsec, st.st_mtim.tv_sec, st.st_mtim.tv_nsec,
                  st.st_ctim.tv_sec, st.st_ctim.tv_nsec}};
  };
  add(root);
  for (const auto& p : fs::recursive_directory_iterator(root)) add(p.path().string());
  return out;
}

// The entries added, removed or changed between two snapshots, by name.
std::vector<std::string> Differences(const std::map<std::string, Entry>& before,
                                     const std::map<std::string, Entry>& after) {
  std::vector<std::string> out;
  for (const auto& [name, entry] : after) {
    if (!before.contains(name) || !(before.at(name) == entry)) out.push_back("added or changed " + name);
  }
  for (const auto& [name, entry] : before) {
    if (!after.contains(name)) out.push_back("removed " + name);
  }
  return out;
}

// Names of a side file of every log a run may write, in the log folder.
const char* const kLogNames[] = {
    "_verification_log.csv", "_errors.log",     "_silent.log",       "_ts_mismatch.log",
    "_longpaths.log",        "_symlinkss.log",  "_mountpointss.log", "_shortpaths_for_longs.log",
    "_existings.log",        "_flist_errs.log", "_jobfile.rvj",      "tally.txt",
    "filelist.txt",          "ActivityLog.txt", "job.lsd",           "_job.sdb",
    "_job.sdb-wal",          "_job.sdb-shm",    "_job.sdb-journal"};

class ConfinementTest : public ::testing::Test, protected test::RunFixture {
 protected:
  std::string outside = dir.MakeDir("outside");
  std::string src = dir / "src";

  void SetUp() override {
    for (const char* f : {"data/a.txt", "data/sub/b.txt", "data/sub2/c.txt", "s.txt"}) {
      dir.WriteFile(std::string("src/") + f, f);
    }
    dir.MakeDir("src/single");
    dir.WriteFile("job.lsw", "[JNAME]\tjob\r\n");
    // Outside: files the links point at, with a database-like victim, and folders.
    for (const char* n : {"victim", "victim_a", "victim_db", "victim_wal"}) {
      dir.WriteFile(std::string("outside/") + n, std::string("keep me: ") + n);
    }
    dir.WriteFile("outside/d1/inner.txt", "inner");
    for (const char* d : {"outside/d2", "outside/d3"}) dir.MakeDir(d);
    // Access times in the future, so that no reading of the snapshot itself moves them.
    for (const auto& p : fs::recursive_directory_iterator(outside)) {
      const struct timespec ts[2] = {{time(nullptr) + 3600, 5}, {UTIME_OMIT, UTIME_OMIT}};
      utimensat(AT_FDCWD, p.path().c_str(), ts, AT_SYMLINK_NOFOLLOW);
    }
  }

  void Link(const std::string& to, const std::string& at) {
    fs::create_directories(fs::path(at).parent_path());
    ASSERT_EQ(symlink(to.c_str(), at.c_str()), 0) << at;
  }

  // Links where each layout puts the files and folders of the sources, and at every log name.
  void Seed(const std::string& target, const std::string& logs) {
    const std::string full = target + src;  // the full-paths layout rebuilds the source path
    for (const std::string& base : {full + "/data", target + "/data"}) {
      Link(outside + "/victim_a", base + "/a.txt");         // an existing file behind the link
      Link(outside + "/d2", base + "/sub");                 // a folder
      Link(outside + "/d3/new.txt", base + "/sub2/c.txt");  // a file not there yet
    }
    Link(outside + "/d1", target + "/src");  // the folder of the single file, subfolder layout
    Link(outside + "/victim", target + "/a.txt");  // flat layout
    Link(outside + "/d3/b.txt", target + "/b.txt");
    Link(outside + "/d1/inner.txt", target + "/c.txt");
    Link(outside + "/d3/s.txt", target + "/s.txt");
    Link(outside + "/d3", full + "/s.txt");
    for (const char* n : kLogNames) Link(outside + "/" + n, logs + "/" + n);
    // Existing victims behind the logs that are read before they are written.
    for (const auto& [victim, log] : {std::pair{"victim_db", "_job.sdb"}, {"victim_wal", "_job.sdb-wal"},
                                      {"victim", "_verification_log.csv"}}) {
      fs::remove(logs + "/" + log);
      Link(outside + "/" + victim, logs + "/" + log);
    }
  }
};

TEST_F(ConfinementTest, NothingOutsideTheTargetAndLogFoldersChanges) {
  const auto before = SnapshotTree(outside);
  ASSERT_GT(before.size(), 8u);
  int runs = 0;
  for (int collision : {kCollisionDoNothing, kCollisionOverwrite, kCollisionRename}) {
    for (int layout = 0; layout < 3; ++layout) {
      SCOPED_TRACE(testing::Message() << "collision " << collision << " layout " << layout);
      const std::string target = dir.MakeDir("target" + std::to_string(runs));
      const std::string logs = dir.MakeDir("logs" + std::to_string(runs++));
      Seed(target, logs);

      RunContext run{dialogs, pump};  // a fresh context for each run
      run.program.flags.silent = true;
      run.settings.Silent = true;
      run.settings.Collision = collision;
      run.settings.FullPaths = layout == 0;
      run.settings.CreateSubs = layout != 2;
      run.settings.CreateFileList = run.settings.CreateTally = true;
      run.settings.CommonLogPath = run.settings.LogPath = logs;
      run.settings.TargetPath = target;
      run.job.JobFilePath = dir / "job.lsw";
      // Dot parts in both kinds of source; ".." past the root stays at the root.
      run.settings.Sources = {"/.." + src + "/../src/./data", src + "/./single/../s.txt"};

      EXPECT_EQ(ExecCopy(run).outcome, ExecOutcome::Completed);
      EXPECT_EQ(Differences(before, SnapshotTree(outside)), std::vector<std::string>{});

      // The run did its work inside: its logs are real files now, and files were copied.
      for (const char* n : {"_verification_log.csv", "_jobfile.rvj", "tally.txt", "_job.sdb"}) {
        struct stat st {};
        EXPECT_TRUE(lstat((logs + "/" + n).c_str(), &st) == 0 && S_ISREG(st.st_mode)) << n;
      }
      size_t copied = 0;
      for (const auto& p : fs::recursive_directory_iterator(target)) {
        if (p.is_regular_file() && !p.is_symlink()) ++copied;
      }
      if (collision != kCollisionDoNothing) {
        EXPECT_GE(copied, 4u);
      } else {
        // The flat layout finds a link at every name, so nothing is copied.
        EXPECT_EQ(copied, layout == 2 ? 0u : 1u);
        // A link at a copy's name is an existing target: left as it is, and listed.
        const std::string aTarget = (layout == 0 ? target + src : target) +
                                    (layout == 2 ? "/a.txt" : "/data/a.txt");
        EXPECT_TRUE(fs::is_symlink(aTarget)) << aTarget;
        EXPECT_NE(test::ReadBytesQuietly(logs + "/_existings.log").find("a.txt\r\n"),
                  std::string::npos);
      }
      // Nothing landed above the target: dot parts were cleaned before mapping.
      EXPECT_FALSE(fs::exists(dir / "data"));
    }
  }
}

}  // namespace
}  // namespace qr
