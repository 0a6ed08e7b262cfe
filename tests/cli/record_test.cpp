// Whole runs of the built runner in which something goes wrong. Each named file ends copied and
// verified, or named in a log and counted; the exit status is 0 only for a run with nothing
// recorded against it, and otherwise one line on standard error says where to look.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>

#include "jobdb/db_connection.h"
#include "run_command.h"
#include "runner_process.h"

namespace qr::cli {
namespace {

namespace fs = std::filesystem;
using test::Has;
using test::Ran;
using test::ReadBytes;
using test::TempDir;

// A job record naming target, log folder and sources, with extra tag lines.
std::string JobRecord(const TempDir& t, const std::vector<std::string>& sources,
                      const std::string& extra = "") {
  std::string r = "[TARGET]\t" + t / "out" + "\r\n[JPATH]\t" + t / "logs" + "\r\n";
  for (const std::string& s : sources) r += "[SRC]\t" + s + "\r\n";
  return r + extra;
}

void Sql(const std::string& db, const std::string& statement) {
  DbConnection c;
  ASSERT_TRUE(c.Open(db));
  c.Execute(statement);
}

constexpr const char* kFailureLine = "ravelin-run: failures were recorded in: ";

struct Case {
  const char* name;
  // Makes the trees and returns the arguments of the run under test (in t.path()).
  std::function<std::vector<std::string>(TempDir&)> setUp;
  int status;
  // Parts of the one failure line; none for a clean run.
  std::function<std::vector<std::string>(TempDir&)> recordedIn;
  std::function<void(TempDir&, const Ran&)> check = {};
};

TEST(RunnerRecord, TheExitStatusIs0OnlyWhenNothingIsRecordedAgainstTheRun) {
  const std::vector<Case> cases = {
      {"a clean run",
       [](TempDir& t) {
         t.WriteFile("src/a.txt", "alpha");
         t.WriteFile("src/sub/b.txt", "beta");
         return std::vector<std::string>{"--yes", "--target", "out", "--log", "logs", "src"};
       },
       kExitDone, nullptr,
       [](TempDir& t, const Ran&) { EXPECT_EQ(ReadBytes(t / "out/src/sub/b.txt"), "beta"); }},
      {"copying switched off leaves every row unfinished",
       [](TempDir& t) {
         t.WriteFile("src/a.txt", "alpha");
         t.WriteFile("src/b.txt", "beta");
         t.WriteFile("job.rvj", JobRecord(t, {t / "src"}, "[COPYFILES]\t0\r\n"));
         return std::vector<std::string>{"--yes", "job.rvj"};
       },
       kExitDoneWithErrors,
       [](TempDir& t) {
         return std::vector<std::string>{t / "logs/_job.sdb (files not finished: 2)"};
       }},
      {"a directory collision is a box and nothing else",
       [](TempDir& t) {
         // A list entry in the target's own folder, mapped flat onto itself.
         t.WriteFile("out/x.txt", "x");
         t.WriteFile("list.txt", t / "out/x.txt" + "\n");
         t.WriteFile("job.rvj", JobRecord(t, {"[File List] " + t / "list.txt"},
                                          "[CREATESUBS]\t0\r\n[OVERWRITE]\t1\r\n"));
         return std::vector<std::string>{"--yes", "job.rvj"};
       },
       kExitDoneWithErrors, [](TempDir&) { return std::vector<std::string>{"the messages above"}; },
       [](TempDir&, const Ran& r) {
         EXPECT_TRUE(Has(r.err, "Directory collision detected. Copy aborted.")) << r.err;
       }},
      {"a row that overflows stops the queue; the silent log has it",
       [](TempDir& t) {
         t.WriteFile("src/a.txt", "alpha");
         t.WriteFile("src/b.txt", "beta");
         Ran first = test::RunRunner({"--yes", "--target", "out", "--log", "logs", "src"}, t.path());
         EXPECT_EQ(first.status, kExitDone) << first.err;
         Sql(t / "logs/_job.sdb",
             "UPDATE tFiles set completed = '0', source_created_low = '99999999999'");
         return std::vector<std::string>{"--yes", "--resume", "logs/_jobfile.rvj"};
       },
       kExitDoneWithErrors,
       [](TempDir& t) {
         return std::vector<std::string>{t / "logs/_silent.log",
                                         t / "logs/_job.sdb (files not finished: 2)"};
       },
       [](TempDir& t, const Ran&) {
         EXPECT_TRUE(Has(ReadBytes(t / "logs/_silent.log"), "File Data Error: "));
       }},
      {"a damaged job database is reported and left as it was",
       [](TempDir& t) {
         for (int i = 0; i < 300; ++i) t.WriteFile("src/f" + std::to_string(i), "some bytes");
         Ran first = test::RunRunner({"--yes", "--target", "out", "--log", "logs", "src"}, t.path());
         EXPECT_EQ(first.status, kExitDone) << first.err;
         Sql(t / "logs/_job.sdb", "UPDATE tFiles set completed = '0' where file_key > 100");
         fs::resize_file(t / "logs/_job.sdb", 16384);
         t.WriteFile("damaged", ReadBytes(t / "logs/_job.sdb"));
         return std::vector<std::string>{"--yes", "--resume", "logs/_jobfile.rvj"};
       },
       kExitDoneWithErrors,
       [](TempDir& t) {
         return std::vector<std::string>{"the messages above",
                                         t / "logs/_job.sdb (which could not be read)"};
       },
       [](TempDir& t, const Ran& r) {
         EXPECT_TRUE(Has(r.err, "DB Validation Error: ")) << r.err;
         EXPECT_EQ(ReadBytes(t / "logs/_job.sdb"), ReadBytes(t / "damaged"));
       }},
      {"file lists are read whole, whatever their encoding",
       [](TempDir& t) {
         std::vector<std::string> paths;
         for (int i = 0; i < 100; ++i)
           paths.push_back(t.WriteFile("src/f" + std::to_string(i), "b"));
         auto utf16 = [](const std::string& text) {
           std::string out;
           for (char ch : text) out += std::string{ch, '\0'};
           return out;
         };
         // 80 entries in UTF-16 with its mark and no last line end; 10 without a mark.
         std::string a, b, c;
         for (int i = 0; i < 80; ++i) a += (i ? "\r\n" : "") + paths[i];
         for (int i = 80; i < 90; ++i) b += paths[i] + "\r\n";
         // A UTF-8 mark, then a first line with a NUL: that entry alone is recorded.
         c = "\xEF\xBB\xBF" + t / std::string("src/\0f90", 8) + "\n";
         for (int i = 91; i < 100; ++i) c += paths[i] + "\n";
         t.WriteFile("a.txt", "\xFF\xFE" + utf16(a));
         t.WriteFile("b.txt", utf16(b));
         t.WriteFile("c.txt", c);
         t.WriteFile("job.rvj",
                     JobRecord(t, {"[File List] " + t / "a.txt", "[File List]" + t / "b.txt",
                                   "[File List]   " + t / "c.txt"}));
         return std::vector<std::string>{"--yes", "job.rvj"};
       },
       kExitDoneWithErrors,
       [](TempDir& t) { return std::vector<std::string>{t / "logs/_flist_errs.log"}; },
       [](TempDir& t, const Ran& r) {
         EXPECT_TRUE(Has(r.out, "Files copied: 99 of 99")) << r.out;
         EXPECT_EQ(ReadBytes(t / "logs/_flist_errs.log"), "Could not find " + t / "src/\r\n");
       }},
      {"an interrupted walk is finished on resume, adding only files without a row",
       [](TempDir& t) {
         for (int i = 0; i < 30; ++i)
           t.WriteFile("src/d" + std::to_string(i % 3) + "/f" + std::to_string(i),
                       std::to_string(i));
         Ran first = test::RunRunner({"--yes", "--target", "out", "--log", "logs", "src"}, t.path());
         EXPECT_EQ(first.status, kExitDone) << first.err;
         // As a kill in the middle of the walk leaves it: the later rows never written, their
         // files never copied, the walk not recorded as ended.
         DbConnection db;
         EXPECT_TRUE(db.Open(t / "logs/_job.sdb"));
         ResultSet lost = db.Query("Select dest_path from tFiles where file_key > 10");
         for (lost.MoveFirst(); !lost.Eof(); lost.MoveNext())
           fs::remove(lost.Field("dest_path").Text());
         db.Execute("DELETE from tFiles where file_key > 10");
         db.Execute("PRAGMA user_version = 0");
         return std::vector<std::string>{"--yes", "--resume", "logs/_jobfile.rvj"};
       },
       kExitDone, nullptr,
       [](TempDir& t, const Ran& r) {
         EXPECT_TRUE(Has(r.out, "Files copied: 30 of 30")) << r.out;
         DbConnection db;
         ASSERT_TRUE(db.Open(t / "logs/_job.sdb"));
         EXPECT_EQ(db.Query("Select distinct source_path from tFiles").RowCount(), 30);
         EXPECT_EQ(db.Query("Select file_key from tFiles").RowCount(), 30);
         for (int i = 0; i < 30; ++i) {
           const std::string rel = "src/d" + std::to_string(i % 3) + "/f" + std::to_string(i);
           EXPECT_EQ(ReadBytes(t / ("out/" + rel)), std::to_string(i)) << rel;
         }
         EXPECT_FALSE(fs::exists(t / "logs/_existings.log")) << "no copied file counts as existing";
       }},
      {"do nothing holds at copy time: six files of one flat name",
       [](TempDir& t) {
         for (char d = 'a'; d <= 'f'; ++d)
           t.WriteFile("src/" + std::string(1, d) + "/x.txt", std::string(1, d));
         t.WriteFile("job.rvj", JobRecord(t, {t / "src"}, "[CREATESUBS]\t0\r\n"));
         return std::vector<std::string>{"--yes", "job.rvj"};
       },
       kExitDone, nullptr,
       [](TempDir& t, const Ran&) {
         const std::string kept = ReadBytes(t / "out/x.txt");
         ASSERT_EQ(kept.size(), 1u);
         const std::string existing = ReadBytes(t / "logs/_existings.log");
         int lines = 0;
         for (char d = 'a'; d <= 'f'; ++d) {
           if (Has(existing, t / "src/" + std::string(1, d) + "/x.txt")) ++lines;
         }
         EXPECT_EQ(lines, 5) << existing;
         EXPECT_FALSE(Has(existing, t / "src/" + kept + "/x.txt")) << existing;
       }},
      {"side logs beside a log folder named with error",
       [](TempDir& t) {
         t.WriteFile("src/a.txt", "a");
         t.MakeDir("elsewhere");
         fs::create_directory_symlink(t / "elsewhere", t / "src/link");
         return std::vector<std::string>{"--yes", "--target",       "out",
                                         "--log", "my_errors_logs", "src"};
       },
       kExitDone, nullptr,
       [](TempDir& t, const Ran&) {
         EXPECT_EQ(ReadBytes(t / "out/src/a.txt"), "a");
         EXPECT_TRUE(Has(ReadBytes(t / "my_errors_logs/_symlinkss.log"), t / "src/link"));
       }},
      {"the walk never enters the run's own target or log folder",
       [](TempDir& t) {
         t.WriteFile("src/a.txt", "a");
         t.WriteFile("src/sub/out/b.txt", "b");  // a folder that only shares the name
         t.WriteFile("src/out/old.txt", "from an earlier run");
         t.WriteFile("src/logs/old.log", "from an earlier run");
         return std::vector<std::string>{"--yes", "--target", "src/out", "--log", "src/logs",
                                         "src"};
       },
       kExitDone, nullptr,
       [](TempDir& t, const Ran& r) {
         EXPECT_TRUE(Has(r.out, "Files copied: 2 of 2")) << r.out;
         EXPECT_EQ(ReadBytes(t / "src/out/src/sub/out/b.txt"), "b");
         EXPECT_FALSE(fs::exists(t / "src/out/src/out"));
         EXPECT_FALSE(fs::exists(t / "src/out/src/logs"));
       }},
      {"a special file named directly is an error of its own, as in a walk",
       [](TempDir& t) {
         t.WriteFile("src/a.txt", "a");
         EXPECT_EQ(mkfifo((t / "named").c_str(), 0600), 0);
         EXPECT_EQ(mkfifo((t / "listed").c_str(), 0600), 0);
         t.WriteFile("list.txt", t / "listed" + "\n/dev/null\n");
         t.WriteFile("job.rvj", JobRecord(t, {t / "src", t / "named", "/dev/zero",
                                              "[File List] " + t / "list.txt"}));
         return std::vector<std::string>{"--yes", "job.rvj"};
       },
       kExitDoneWithErrors,
       [](TempDir& t) { return std::vector<std::string>{t / "logs/_errors.log"}; },
       [](TempDir& t, const Ran& r) {
         EXPECT_TRUE(Has(r.out, "Files copied: 1 of 1")) << r.out;
         EXPECT_TRUE(Has(r.out, "Errors: 4")) << r.out;
         const std::string errors = test::Utf16FileText(t / "logs/_errors.log");
         for (const std::string& path : {t / "named", std::string("/dev/zero"), t / "listed",
                                         std::string("/dev/null")}) {
           EXPECT_TRUE(Has(errors, path + "\t(Cannot access file: Not a regular file)"))
               << path << "\n" << errors;
         }
         EXPECT_FALSE(fs::exists(t / "logs/_flist_errs.log"));
       }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir t;
    const std::vector<std::string> args = c.setUp(t);
    Ran r = test::RunRunner(args, t.path());
    EXPECT_EQ(r.status, c.status) << r.err << r.out;
    const size_t at = r.err.find(kFailureLine);
    if (!c.recordedIn) {
      EXPECT_EQ(at, std::string::npos) << r.err;
    } else {
      ASSERT_NE(at, std::string::npos) << r.err;
      const std::string line = r.err.substr(at, r.err.find('\n', at) - at);
      for (const std::string& part : c.recordedIn(t)) EXPECT_TRUE(Has(line, part)) << line;
    }
    if (c.check) c.check(t, r);
  }
}

}  // namespace
}  // namespace qr::cli
