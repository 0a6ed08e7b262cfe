// A collection writes only inside its target and log folders, even where both are seeded with
// links to an "outside" folder and the sources have "." and ".." parts, in every collision mode
// and layout.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <tuple>
#include <vector>

#include "exec/run_driver.h"
#include "support/run_fixture.h"

namespace qr {
namespace {

namespace fs = std::filesystem;

// Mode, bytes, link text and all three times (the change time moves on any write).
using Entry = std::tuple<mode_t, std::string, std::string, std::vector<int64_t>>;

std::map<std::string, Entry> SnapshotTree(const std::string& root) {
  std::map<std::string, Entry> out;
  std::vector<std::string> paths{root};
  for (const auto& p : fs::recursive_directory_iterator(root)) paths.push_back(p.path().string());
  for (const std::string& path : paths) {
    struct stat st {};
    EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
    out[path] = {st.st_mode, S_ISREG(st.st_mode) ? test::ReadBytesQuietly(path) : "",
                 S_ISLNK(st.st_mode) ? fs::read_symlink(path).string() : "",
                 {st.st_atim.tv_sec, st.st_atim.tv_nsec, st.st_mtim.tv_sec, st.st_mtim.tv_nsec,
                  st.st_ctim.tv_sec, st.st_ctim.tv_nsec}};
  }
  return out;
}

// Every name a run may write in its log folder, side files of the database included.
const char* const kLogNames[] = {
    "_verification_log.csv", "_errors.log", "_silent.log", "_ts_mismatch.log", "_longpaths.log",
    "_symlinkss.log", "_mountpointss.log", "_shortpaths_for_longs.log", "_existings.log",
    "_flist_errs.log", "_jobfile.rvj", "tally.txt", "filelist.txt", "ActivityLog.txt", "job.lsd",
    "_job.sdb", "_job.sdb-wal", "_job.sdb-shm", "_job.sdb-journal"};

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
    for (const char* n : {"victim", "victim_a", "victim_db", "victim_wal", "d1/inner.txt"}) {
      dir.WriteFile(std::string("outside/") + n, std::string("keep me: ") + n);
    }
    for (const char* d : {"outside/d2", "outside/d3"}) dir.MakeDir(d);
    // Access times in the future, so that no reading of the snapshot itself moves them.
    for (const auto& p : fs::recursive_directory_iterator(outside)) {
      const struct timespec ts[2] = {{time(nullptr) + 3600, 5}, {UTIME_OMIT, UTIME_OMIT}};
      utimensat(AT_FDCWD, p.path().c_str(), ts, AT_SYMLINK_NOFOLLOW);
    }
  }

  void Link(const std::string& to, const std::string& at) {
    fs::create_directories(fs::path(at).parent_path());
    fs::remove(at);
    ASSERT_EQ(symlink((outside + "/" + to).c_str(), at.c_str()), 0) << at;
  }

  // Links where each layout puts the files and folders of the sources, and at every log name.
  void Seed(const std::string& target, const std::string& logs) {
    for (const std::string& base : {target + src + "/data", target + "/data"}) {
      Link("victim_a", base + "/a.txt");         // an existing file behind the link
      Link("d2", base + "/sub");                 // a folder
      Link("d3/new.txt", base + "/sub2/c.txt");  // a file not there yet
    }
    Link("d1", target + "/src");  // the folder of the single file, subfolder layout
    Link("victim", target + "/a.txt");  // flat layout
    Link("d3/b.txt", target + "/b.txt");
    Link("d1/inner.txt", target + "/c.txt");
    Link("d3/s.txt", target + "/s.txt");
    Link("d3", target + src + "/s.txt");
    for (const char* n : kLogNames) Link(n, logs + "/" + n);
    // Existing victims behind the logs that are read before they are written.
    Link("victim_db", logs + "/_job.sdb");
    Link("victim_wal", logs + "/_job.sdb-wal");
    Link("victim", logs + "/_verification_log.csv");
  }
};

TEST_F(ConfinementTest, NothingOutsideTheTargetAndLogFoldersChanges) {
  const auto before = SnapshotTree(outside);
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
      run.settings.Sources = {"/.." + src + "/../src/./data", src + "/./single/../s.txt"};

      EXPECT_EQ(ExecCopy(run).outcome, ExecOutcome::Completed);
      EXPECT_TRUE(SnapshotTree(outside) == before);

      // The run did its work inside: its record is a real file now, and files were copied.
      EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(logs + "/_job.sdb")));
      size_t copied = 0;
      for (const auto& p : fs::recursive_directory_iterator(target)) {
        copied += p.is_regular_file() && !p.is_symlink();
      }
      // Under Do Nothing a link at a copy's name is an existing target, left and listed.
      if (collision == kCollisionDoNothing) {
        EXPECT_EQ(copied, layout == 2 ? 0u : 1u);
        EXPECT_NE(test::ReadBytesQuietly(logs + "/_existings.log").find("a.txt\r\n"),
                  std::string::npos);
      } else {
        EXPECT_GE(copied, 4u);
      }
      EXPECT_FALSE(fs::exists(dir / "data")) << "dot parts were cleaned before mapping";
    }
  }
}

}  // namespace
}  // namespace qr
