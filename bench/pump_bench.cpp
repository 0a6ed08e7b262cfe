// What keeping the window alive costs a run. A real collection of many small files (the case
// with the most pump calls a byte) runs offscreen with the window program's pump and a progress
// window that it refreshes, and the same collection runs with a pump that does nothing; the two
// alternate. Counters of BM_CollectionWithWindowPump:
//   overhead_%, cpu_overhead_%  the windowed run over the plain one, wall and processor time;
//                               on a shared machine and a disk these swing by several percent
//   rounds_cpu_%                the processor time of the pump's rounds over that of the run:
//                               the cost measured directly
//   show_cpu_ms, round_cpu_us   the first round of a run (it shows the window), the others
// Two smaller benchmarks give the cost of one pump call between rounds and of one round with
// warm caches.
//
//   ravelin-bench-pump [--benchmark_...]
//   RAVELIN_BENCH_PUMP_FILES  files in the tree (default 20000)
//   RAVELIN_BENCH_PUMP_DIR    where the tree and the run's outputs go (default the temp folder)
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <QApplication>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "exec/run_driver.h"
#include "platform/quiet_seams.h"
#include "progress_window.h"
#include "qt_event_pump.h"

namespace {

namespace fs = std::filesystem;

double ThreadCpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

// The window program's pump, with the processor time of its rounds added up: the part of a
// run that keeping the window alive takes, measured directly rather than as the small
// difference of two long runs. Processor time, since a round gives up the processor while Qt
// polls for events, and on a shared machine wall time would count the wait for other programs.
// A round is timed from its refresh to the return of the call; the calls between rounds are
// counted, and cost what BM_PumpCallBetweenRounds measures.
class TimedPump : public qr::EventPump {
 public:
  qr::gui::QtEventPump inner;
  int64_t calls = 0;
  int64_t rounds = 0;
  double roundCpuSeconds = 0;
  // The first round of a run shows the window, which costs more than all the others together
  // on a short run; it is counted apart.
  bool firstOfRun = true;
  double firstRoundCpuSeconds = 0;

  explicit TimedPump(std::function<void()> refresh) {
    inner.setRefresh([this, refresh = std::move(refresh)] {
      roundStart_ = ThreadCpuSeconds();
      inRound_ = true;
      refresh();
    });
  }
  void Pump() override {
    ++calls;
    inner.Pump();
    if (inRound_) {
      const double s = ThreadCpuSeconds() - roundStart_;
      inRound_ = false;
      if (firstOfRun) {
        firstRoundCpuSeconds += s;
        firstOfRun = false;
      } else {
        roundCpuSeconds += s;
        ++rounds;
      }
    }
  }

 private:
  double roundStart_ = 0;
  bool inRound_ = false;
};

long FileCount() {
  const char* n = std::getenv("RAVELIN_BENCH_PUMP_FILES");
  return n != nullptr ? std::atol(n) : 20000;
}

// RAVELIN_BENCH_PUMP_DIR, else the temporary folder. On tmpfs the run does no waiting for a
// disk, which makes the pump's share of it the largest.
fs::path WorkFolder() {
  const char* d = std::getenv("RAVELIN_BENCH_PUMP_DIR");
  return d != nullptr ? fs::path(d) : fs::temp_directory_path();
}

// Folders of 100 files of 1 KiB each.
void MakeTree(const fs::path& root, long files) {
  const std::string bytes(1024, 'x');
  for (long i = 0; i < files; ++i) {
    const fs::path folder = root / ("d" + std::to_string(i / 100));
    if (i % 100 == 0) fs::create_directories(folder);
    const std::string f = (folder / ("file " + std::to_string(i) + ".txt")).string();
    int fd = open(f.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) {
      std::perror(f.c_str());
      std::exit(1);
    }
    [[maybe_unused]] ssize_t w = write(fd, bytes.data(), bytes.size());
    close(fd);
  }
}

struct Tree {
  fs::path work;
  long files;
  Tree() : work(WorkFolder() / ("ravelin-bench-pump-" + std::to_string(getpid()))),
           files(FileCount()) {
    MakeTree(work / "source", files);
  }
  ~Tree() { fs::remove_all(work); }
};

Tree& SharedTree() {
  static Tree tree;
  return tree;
}

double CpuSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

struct Times {
  double wall = 0;
  double cpu = 0;
};

// One collection of the tree into a fresh target and log folder: its wall and processor time
// in seconds. The processor time is the steadier measure on a machine that other work shares.
Times Collect(qr::RunContext& ctx, const Tree& tree) {
  fs::remove_all(tree.work / "target");
  fs::remove_all(tree.work / "logs");
  ctx.settings.Sources = {(tree.work / "source").string()};
  ctx.settings.TargetPath = (tree.work / "target").string();
  ctx.settings.LogPath = (tree.work / "logs").string();
  const auto t0 = std::chrono::steady_clock::now();
  const double c0 = CpuSeconds();
  qr::ExecCopy(ctx);
  const Times t{std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count(),
                CpuSeconds() - c0};
  if (ctx.counters.FilesProcessed != tree.files || ctx.counters.ErrorCount != 0) {
    std::fprintf(stderr, "collection incomplete: %d of %ld files, %d errors\n",
                 ctx.counters.FilesProcessed, tree.files, ctx.counters.ErrorCount);
    std::exit(1);
  }
  return t;
}

void BM_CollectionWithWindowPump(benchmark::State& state) {
  Tree& tree = SharedTree();
  qr::AffirmativeDialogs dialogs;
  qr::NoPump noPump;
  qr::RunContext plain(dialogs, noPump);
  qr::gui::ProgressWindow* window = nullptr;
  TimedPump pump([&window] { window->Refresh(); });
  qr::RunContext windowed(dialogs, pump);
  qr::gui::ProgressWindow progress(windowed);
  window = &progress;

  Times plainTotal, windowedTotal;
  int64_t round = 0;
  for (auto _ : state) {
    // Alternate the order, so that neither run always finds the caches the other left.
    Times p, w;
    pump.firstOfRun = true;
    if (round++ % 2 == 0) {
      p = Collect(plain, tree);
      w = Collect(windowed, tree);
    } else {
      w = Collect(windowed, tree);
      p = Collect(plain, tree);
    }
    plainTotal.wall += p.wall;
    plainTotal.cpu += p.cpu;
    windowedTotal.wall += w.wall;
    windowedTotal.cpu += w.cpu;
    state.SetIterationTime(w.wall);
  }
  const double n = static_cast<double>(round);
  state.counters["files"] = static_cast<double>(tree.files);
  state.counters["no_pump_s"] = plainTotal.wall / n;
  state.counters["pump_s"] = windowedTotal.wall / n;
  state.counters["no_pump_cpu_s"] = plainTotal.cpu / n;
  state.counters["pump_cpu_s"] = windowedTotal.cpu / n;
  state.counters["overhead_%"] = (windowedTotal.wall / plainTotal.wall - 1.0) * 100.0;
  state.counters["cpu_overhead_%"] = (windowedTotal.cpu / plainTotal.cpu - 1.0) * 100.0;
  state.counters["pump_calls"] = static_cast<double>(pump.calls) / n;
  state.counters["rounds_cpu_%"] =
      (pump.firstRoundCpuSeconds + pump.roundCpuSeconds) / windowedTotal.cpu * 100.0;
  state.counters["show_cpu_ms"] = pump.firstRoundCpuSeconds / n * 1e3;
  state.counters["rounds"] = static_cast<double>(pump.rounds) / n;
  state.counters["round_cpu_us"] = pump.roundCpuSeconds / static_cast<double>(pump.rounds) * 1e6;
  state.counters["later_rounds_cpu_%"] = pump.roundCpuSeconds / windowedTotal.cpu * 100.0;
}
BENCHMARK(BM_CollectionWithWindowPump)->UseManualTime()->Unit(benchmark::kMillisecond)
    ->Iterations(4);

// A pump call inside the interval: what each walked entry and each copied chunk pays.
void BM_PumpCallBetweenRounds(benchmark::State& state) {
  qr::gui::QtEventPump pump(std::chrono::hours(1));
  pump.Pump();
  for (auto _ : state) pump.Pump();
}
BENCHMARK(BM_PumpCallBetweenRounds);

// One round with the progress window shown and its labels changed: what the run pays each
// interval.
void BM_PumpRound(benchmark::State& state) {
  qr::AffirmativeDialogs dialogs;
  qr::gui::QtEventPump pump(std::chrono::nanoseconds(0));
  qr::RunContext ctx(dialogs, pump);
  qr::gui::ProgressWindow window(ctx);
  pump.setRefresh([&window] { window.Refresh(); });
  ctx.progress.visible = true;
  int i = 0;
  const auto t0 = std::chrono::steady_clock::now();
  for (auto _ : state) {
    ++i;
    ctx.progress.lblFilesCopied = "Files Copied: " + std::to_string(i) + " of 1000000";
    ctx.progress.lblCurrentFile = "Current File: file " + std::to_string(i) + ".txt";
    ctx.progress.Progress_Set(i % 101);
    pump.Pump();
  }
  const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - t0;
  const double perRound = spent.count() / static_cast<double>(i);
  // The share of a run's time that rounds take when one falls due every interval.
  state.counters["share_at_interval_%"] =
      100.0 * perRound / std::chrono::duration<double>(qr::gui::QtEventPump::kInterval).count();
}
BENCHMARK(BM_PumpRound)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
