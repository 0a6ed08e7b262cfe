// Enumeration of a large generated tree through a real run with copying switched off: the rate
// in entries a second and the peak memory of the process.
//
//   ravelin-bench-enumerate make DIR ENTRIES   generate a tree of about ENTRIES files and folders
//   ravelin-bench-enumerate run DIR WORK ENTRIES  run a job over DIR (of ENTRIES files and
//                                                 folders), outputs under WORK
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "exec/run_driver.h"
#include "platform/quiet_seams.h"

namespace {

// Boxes are printed, so a refused run says why.
class NoDialogs : public qr::AffirmativeDialogs {
 public:
  qr::Answer MessageBox(const std::string& text, const std::string& title, qr::Icon icon,
                        qr::Buttons buttons) override {
    std::fprintf(stderr, "box: %s\n", text.c_str());
    return AffirmativeDialogs::MessageBox(text, title, icon, buttons);
  }
};

// Folders of 100 files each, 10 subfolders a level, so that depth stays small and widths are
// realistic.
int Make(const std::string& root, long entries) {
  mkdir(root.c_str(), 0755);
  long made = 0;
  long folderNo = 0;
  std::string level1;
  while (made < entries) {
    std::string folder = root + "/d" + std::to_string(folderNo / 100) + "/e" +
                         std::to_string(folderNo % 100);
    level1 = root + "/d" + std::to_string(folderNo / 100);
    mkdir(level1.c_str(), 0755);
    mkdir(folder.c_str(), 0755);
    made += 2;
    for (int i = 0; i < 100 && made < entries; ++i, ++made) {
      std::string f = folder + "/file " + std::to_string(i) + (i % 7 == 0 ? "'s.doc" : ".txt");
      int fd = open(f.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (fd < 0) {
        std::perror(f.c_str());
        return 1;
      }
      if (i % 10 == 0) {
        [[maybe_unused]] ssize_t n = write(fd, f.data(), f.size());
      }
      close(fd);
    }
    ++folderNo;
  }
  std::printf("made %ld entries under %s\n", made, root.c_str());
  return 0;
}

int Run(const std::string& source, const std::string& work, long entries) {
  NoDialogs dialogs;
  qr::NoPump pump;
  qr::RunContext ctx(dialogs, pump);
  ctx.program.flags.silent = true;
  ctx.settings.CopyFiles = false;
  ctx.settings.Sources = {source};
  ctx.settings.TargetPath = work + "/target";
  ctx.settings.LogPath = work + "/logs";
  auto t0 = std::chrono::steady_clock::now();
  qr::ExecResult r = qr::ExecCopy(ctx);
  auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  rusage ru{};
  getrusage(RUSAGE_SELF, &ru);
  std::printf("outcome %d, files %d, bytes %lld, errors %d\n", static_cast<int>(r.outcome),
              ctx.counters.TotalFiles, static_cast<long long>(ctx.counters.TotalBytes),
              ctx.counters.ErrorCount);
  std::printf("seconds %.2f, entries/s %.0f\n", seconds, static_cast<double>(entries) / seconds);
  std::printf("peak memory %.1f MiB\n", static_cast<double>(ru.ru_maxrss) / 1024.0);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && std::string(argv[1]) == "make") return Make(argv[2], std::atol(argv[3]));
  if (argc == 5 && std::string(argv[1]) == "run") {
    return Run(argv[2], argv[3], std::atol(argv[4]));
  }
  std::fprintf(stderr, "usage: %s make DIR ENTRIES | run DIR WORK ENTRIES\n", argv[0]);
  return 64;
}
