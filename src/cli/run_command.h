#pragma once
// The headless runner's command: reads its arguments, goes through the same start-up and run as
// the window program, and turns the run's outcome into an exit status. Streams are parameters so
// that tests run it in-process.
#include <csignal>
#include <istream>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "platform/event_pump.h"
#include "progress_line.h"
#include "run/job_settings.h"
#include "run/run_context.h"

namespace qr::cli {

inline constexpr int kExitDone = 0;
inline constexpr int kExitDoneWithErrors = 1;
inline constexpr int kExitRefused = 2;
inline constexpr int kExitCancelled = 3;
inline constexpr int kExitUsage = 64;

struct CommandLine {
  bool help = false;
  bool yes = false;
  bool silent = false;
  std::optional<std::string> target;  // as given
  std::optional<std::string> log;     // as given
  std::vector<std::string> sources;   // as given, in order
  std::optional<std::string> jobFile;  // a .lsw or .rvj to run, as given
  bool resume = false;                 // --resume: the job file is continued as Resume does
  bool allowEndCommand = false;        // --allow-end-command: a job record's end command runs
  bool jobs = false;                   // --jobs: the job picker's view
  std::optional<std::string> jobName;  // --jobs NAME: that due job is run
};

// Parses the arguments (without the program name). On a usage error returns nullopt and puts
// the reason in `error`.
std::optional<CommandLine> ParseCommandLine(const std::vector<std::string>& args,
                                            std::string& error);

std::string UsageText();

// The pump of the headless runner: a Ctrl-C becomes a cancel request, as the Cancel button
// does; children the run stopped waiting for are reaped; and the progress line, if there is
// one, is redrawn. Without a line it prints nothing.
class CliEventPump : public EventPump {
 public:
  explicit CliEventPump(const volatile std::sig_atomic_t& interrupted, ProgressLine* line = nullptr)
      : interrupted_(interrupted), line_(line) {}
  void Attach(RunContext& ctx) { ctx_ = &ctx; }
  void Pump() override;

 private:
  const volatile std::sig_atomic_t& interrupted_;
  ProgressLine* line_;
  RunContext* ctx_ = nullptr;
};

// Set by the SIGINT handler; stays set for the rest of the process.
volatile std::sig_atomic_t& InterruptFlag();
// The first Ctrl-C asks the run to stop after the file in hand; the handler then gives the
// signal back to its default, so a second Ctrl-C ends the program at once.
void InstallInterruptHandler();

// `args` without the program name. Returns the exit status. `errTerminalFd` is the terminal
// behind `err` for the live progress line, -1 when `err` is not a terminal (no line at all).
int RunCommand(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
               std::ostream& err, bool stdinIsTerminal, int errTerminalFd = -1);

}  // namespace qr::cli
