#include "run_command.h"

#include <unistd.h>

#include <chrono>
#include <exception>

#include "absolute_path.h"
#include "exec/report.h"
#include "exec/resume.h"
#include "exec/run_driver.h"
#include "exec/startup.h"
#include "jobdef/job_file.h"
#include "jobdef/source_list.h"
#include "job_list.h"
#include "platform/device_env.h"
#include "platform/errors.h"
#include "platform/path_layer.h"
#include "platform/process.h"
#include "platform/text.h"
#include "run/run_context.h"
#include "terminal_dialogs.h"

namespace qr::cli {

namespace {

bool EndsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

bool IsJobFileName(const std::string& arg) {
  return EndsWith(arg, ".lsw") || EndsWith(arg, ".rvj");
}

// "--target DIR" or "--target=DIR". Returns false on a usage error.
bool TakeValue(const std::vector<std::string>& args, size_t& i, const std::string& name,
               std::optional<std::string>& slot, std::string& error) {
  const std::string& arg = args[i];
  std::string value;
  if (arg == name) {
    if (i + 1 >= args.size()) {
      error = name + " needs a folder";
      return false;
    }
    value = args[++i];
  } else {
    value = arg.substr(name.size() + 1);
  }
  if (slot) {
    error = name + " is given more than once";
    return false;
  }
  if (value.empty()) {
    error = name + " needs a folder";
    return false;
  }
  slot = value;
  return true;
}

volatile std::sig_atomic_t g_interrupted = 0;

extern "C" void OnInterrupt(int) {
  g_interrupted = 1;
  static const char notice[] =
      "\nravelin-run: cancelling after the file in hand (Ctrl-C again ends at once)\n";
  // write() is safe in a signal handler; its result has nothing to tell us here.
  [[maybe_unused]] ssize_t n = ::write(STDERR_FILENO, notice, sizeof notice - 1);
}

const char* OutcomeText(ExecOutcome o) {
  switch (o) {
    case ExecOutcome::Refused:
      return "refused";
    case ExecOutcome::Completed:
      return "completed";
    case ExecOutcome::Cancelled:
      return "cancelled";
    case ExecOutcome::Aborted:
      return "stopped by a failure";
  }
  return "";
}

// 0 only for a run with nothing recorded against it; `failures` says where things were.
int ExitStatus(ExecOutcome o, const std::string& failures) {
  switch (o) {
    case ExecOutcome::Refused:
      return kExitRefused;
    case ExecOutcome::Completed:
      return failures.empty() ? kExitDone : kExitDoneWithErrors;
    case ExecOutcome::Cancelled:
      return kExitCancelled;
    case ExecOutcome::Aborted:
      return kExitDoneWithErrors;
  }
  return kExitDoneWithErrors;
}

// A job file run as the job picker runs it, or, with `resume`, continued as the Resume menu
// does. nullopt when it could not be read or nothing ran.
std::optional<ExecResult> RunJobFile(RunContext& ctx, const std::string& jobFile, bool resume,
                                     std::ostream& err) {
  if (!FileExists(jobFile)) {
    err << "ravelin-run: no such job file: " << TerminalText(jobFile) << "\n";
    return std::nullopt;
  }
  try {
    if (resume) {
      // A job record asks to continue from its database; a prepared job with a name starts
      // anew.
      return ResumeJob(ctx, jobFile);
    }
    ReadRVFile(ctx, jobFile);
    ctx.job.JobFilePath = jobFile;
    return ExecCopy(ctx);
  } catch (const RunError& e) {
    // A job file that can't be read, or that holds no number where one is needed.
    err << "ravelin-run: the job file could not be read: " << e.number() << " : "
        << e.description() << "\n";
    return std::nullopt;
  }
}

}  // namespace

std::optional<CommandLine> ParseCommandLine(const std::vector<std::string>& args,
                                            std::string& error) {
  CommandLine cl;
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (!optionsEnded && arg.size() > 1 && arg[0] == '-') {
      if (arg == "--") {
        optionsEnded = true;
      } else if (arg == "--help" || arg == "-h") {
        cl.help = true;
      } else if (arg == "--yes" || arg == "-y") {
        cl.yes = true;
      } else if (arg == "--silent") {
        cl.silent = true;
      } else if (arg == "--resume") {
        cl.resume = true;
      } else if (arg == "--allow-end-command") {
        cl.allowEndCommand = true;
      } else if (arg == "--jobs") {
        cl.jobs = true;
        if (i + 1 < args.size() && !args[i + 1].starts_with("-")) cl.jobName = args[++i];
      } else if (arg.starts_with("--jobs=")) {
        cl.jobs = true;
        cl.jobName = arg.substr(7);
      } else if (arg == "--target" || arg.starts_with("--target=")) {
        if (!TakeValue(args, i, "--target", cl.target, error)) return std::nullopt;
      } else if (arg == "--log" || arg.starts_with("--log=")) {
        if (!TakeValue(args, i, "--log", cl.log, error)) return std::nullopt;
      } else {
        error = "unknown option " + arg;
        return std::nullopt;
      }
      continue;
    }
    if (arg.empty() || arg == "-") {
      error = "'" + arg + "' is no source path";
      return std::nullopt;
    }
    if (IsJobFileName(arg)) {
      if (cl.jobFile) {
        error = "one job file at a time: " + arg;
        return std::nullopt;
      }
      cl.jobFile = arg;
      continue;
    }
    cl.sources.push_back(arg);
  }
  // A job file carries its own sources, target and log folder: mixing would change which
  // database a resumed job continues from.
  if (cl.jobFile && (!cl.sources.empty() || cl.target || cl.log)) {
    error = "a job file carries its own sources, target and log folder; name none of them";
    return std::nullopt;
  }
  // The picker's jobs carry everything of their own, as a job file does.
  if (cl.jobs && (cl.jobFile || cl.resume || !cl.sources.empty() || cl.target || cl.log)) {
    error = "--jobs takes no job file, --resume, sources, --target or --log";
    return std::nullopt;
  }
  if (cl.jobName && Trim(*cl.jobName).empty()) {
    error = "--jobs= needs a job name";
    return std::nullopt;
  }
  if (cl.resume && !cl.jobFile) {
    error = "--resume needs a job file (.rvj or .lsw)";
    return std::nullopt;
  }
  return cl;
}

std::string UsageText() {
  return R"(Usage: ravelin-run [--yes] [--silent] [--target DIR] [--log DIR] [SOURCE...]
       ravelin-run [--yes] [--silent] [--resume] [--allow-end-command] JOBFILE
       ravelin-run --jobs
       ravelin-run [--yes] [--silent] [--allow-end-command] --jobs NAME

Collects the SOURCE files and folders into the target folder, keeping their times, with the MD5
of each source and each copy and a record of the job in the log folder. It runs the same
start-up, checks and run as the window program quillon-ravelin, without a window.

Options:
  --target DIR  the folder the copies go to
  --log DIR     the folder of the job's database, logs and job record; without it the log
                folder is the target folder (as in the window, where the log path follows
                the target path while the two agree)
  --yes, -y     answer every message box with its affirmative button (Yes or OK)
  --resume      continue the job file's job from its job database
  --allow-end-command
                run the end command ([SHELLEX]) of a job record (_jobfile.rvj) too; a run
                never writes one there, so without this option it is left out, with a notice
  --silent      start with the -silent switch: no message boxes during the run, a job that
                fails its checks ends the program at once
  --jobs        list the prepared jobs due on this computer, as the job picker does, and exit
  --jobs NAME, --jobs=NAME
                run the due job of that name as the job picker's Run button does
  --help, -h    show this text and exit
  --            every argument after it is a source

Relative paths are made absolute against the current folder before use. Each source goes
through the rules of the window's source list: a path that does not exist is reported and
dropped, a folder inside a listed folder is refused.

A job file (an argument ending in .lsw or .rvj) is run as the job picker runs it: its sources,
target, log folder and options are read from it, and a prepared job (.lsw) leaves its .lsd
completion copy in the log folder. With --resume the job is continued as the Resume menu
does: a job record (_jobfile.rvj) asks to continue from its job database, where only the
files not yet finished are copied; a prepared job with a name starts anew. A job file takes
no sources, --target or --log of its own on the command line.

The prepared jobs are the .lsw files in the folder _lsw beside the program (the job picker's
folder, as on a portable drive). A job is due unless it has no name ([JNAME]), its .lsd
completion copy already lies in its log folder ([JPATH], with [RVDrive], [RoverDrive],
[JobName], [CName] and [UName] replaced), or it is locked ([CNAME]) to another computer,
compared without regard to case. --jobs prints each due job's name and instructions, sorted by
name; --jobs NAME runs one: the name as listed, else the one name equal to it without regard
to case. A name that no due job, or several, answer to is refused with exit status 2.

A job file is a program: the end command of a prepared job runs through /bin/sh when the
run ends, so run only job files you trust. Its variables ([JobName] and the others) are
quoted, so their values are always data, and the command is printed to standard error before
it starts.

Message boxes are printed to standard error. Without --yes they are asked on the terminal;
with no terminal on standard input a question is refused (No or Cancel) and a notice is
taken as read (OK); input boxes and pickers get no answer. The runner never saves options
back to the settings files.

While a run works, and only when standard error is a terminal, one line there shows the
files and MB done of all, the elapsed time, the estimated time left and the current file.
It is redrawn in place up to four times a second and erased before any message box and
before the summary.

At the end of a run that ran, completed or cancelled, standard output gets the run's report
(the text of its closing message box), then a line "Outcome: ...". A refused job prints the
outcome only.

Ctrl-C stops the run as the Cancel button does: the file in hand is finished, no other file
is started, the report begins "The process has been canceled." and the exit status is 3. A
second Ctrl-C ends the program at once.

Exit status:
  0   every file finished without an error and nothing else failed
  1   anything failed: a file's error, a failure of the job database, the walk, a log or
      the job file, files left unfinished, or a run stopped by a failure; one line on
      standard error then says where the failures were recorded
  2   refused: a check before the run failed, or start-up failed
  3   cancelled
  64  wrong usage
)";
}

void CliEventPump::Pump() {
  if (interrupted_ != 0 && ctx_ != nullptr) ctx_->counters.CancelRequested = true;
  ReapAbandonedChildren();
  if (line_ != nullptr && ctx_ != nullptr) {
    line_->Refresh(*ctx_, std::chrono::steady_clock::now());
  }
}

volatile std::sig_atomic_t& InterruptFlag() { return g_interrupted; }

void InstallInterruptHandler() {
  struct sigaction sa {};
  sa.sa_handler = OnInterrupt;
  sigemptyset(&sa.sa_mask);
  // No SA_RESTART: a Ctrl-C at a terminal question breaks the read, which refuses the box.
  sa.sa_flags = SA_RESETHAND;
  sigaction(SIGINT, &sa, nullptr);
}

int RunCommand(const std::vector<std::string>& args, std::istream& in, std::ostream& out,
               std::ostream& err, bool stdinIsTerminal, int errTerminalFd) {
  std::string error;
  std::optional<CommandLine> cl = ParseCommandLine(args, error);
  if (!cl) {
    err << "ravelin-run: " << error << "\n"
        << "Try 'ravelin-run --help' for more information.\n";
    return kExitUsage;
  }
  if (cl->help) {
    out << UsageText();
    return kExitDone;
  }

  // Every path is made absolute before start-up, so that nothing later depends on the folder
  // the runner happened to start in.
  std::vector<std::string> sources;
  for (const std::string& s : cl->sources) sources.push_back(AbsolutePath(s));
  std::string target = cl->target ? AbsolutePath(*cl->target) : std::string();
  std::string log = cl->log ? AbsolutePath(*cl->log) : target;
  for (const std::string& p : sources) {
    if (p.empty()) {
      err << "ravelin-run: the current folder can't be determined\n";
      return kExitUsage;
    }
  }

  ProgressLine line(err, errTerminalFd);
  TerminalDialogs dialogs(in, err, cl->yes, stdinIsTerminal, &line);
  CliEventPump pump(InterruptFlag(), &line);
  RunContext ctx(dialogs, pump);
  pump.Attach(ctx);

  try {
    StartupInputs inputs;
    if (cl->silent) inputs.args.push_back("-silent");
    inputs.environment = ProcessEnvironment();
    inputs.singleInstance = false;  // scripts may run several jobs at once
    StartupResult started = Startup(ctx, inputs);
    ctx.program.flags.allowRecordEndCommand = cl->allowEndCommand;
    if (started.endProgram) {
      err << "ravelin-run: start-up failed\n";
      out << "Outcome: start-up failed\n";
      return kExitRefused;
    }

    if (cl->jobs) {
      const JobHost host = ThisHost(ctx);
      const std::vector<JobEntry> due = DueJobs(host);
      if (!cl->jobName) {
        PrintDueJobs(due, JobFolder(host.programFolder), out);
        return kExitDone;
      }
      std::string why;
      std::optional<std::string> jobFile = FindDueJob(due, *cl->jobName, why);
      if (!jobFile) {
        err << "ravelin-run: " << why << "\n";
        out << "Outcome: " << OutcomeText(ExecOutcome::Refused) << "\n";
        return kExitRefused;
      }
      // Run as the picker's Run button runs it.
      cl->jobFile = *jobFile;
    }

    ExecResult result;
    if (cl->jobFile) {
      std::optional<ExecResult> ran = RunJobFile(ctx, AbsolutePath(*cl->jobFile), cl->resume, err);
      if (!ran) {
        line.Erase();
        out << "Outcome: " << OutcomeText(ExecOutcome::Refused) << "\n";
        return kExitRefused;
      }
      result = *ran;
    } else {
      // Target and log come first: adding a source may look at them, as reading a job does.
      ctx.settings.TargetPath = target;
      ctx.settings.LogPath = log;
      for (std::string& source : sources) AddSource(ctx, source);
      result = ExecCopy(ctx);
    }
    // Standard output and error are often the same terminal: the summary starts on a clean line.
    line.Erase();
    const RunCounters& c = ctx.counters;
    switch (result.outcome) {
      case ExecOutcome::Completed:
      case ExecOutcome::Cancelled:
        // The run's own report, as its message box and tally.txt word it; the cancel request
        // itself is cleared at the close-down, so the outcome says which report it was.
        out << TerminalText(BuildReportText(c, result.outcome == ExecOutcome::Cancelled))
            << "\nOutcome: " << OutcomeText(result.outcome) << "\n";
        break;
      case ExecOutcome::Aborted:
        // No report exists for a run a handler ended: the counters as they stood.
        out << "Outcome: " << OutcomeText(result.outcome) << "\n"
            << "Files copied: " << c.FilesProcessed << " of " << c.TotalFiles << "\n"
            << "Errors: " << c.ErrorCount << "\n";
        break;
      case ExecOutcome::Refused:
        out << "Outcome: " << OutcomeText(result.outcome) << "\n";
        break;
    }
    // A run that ran is only clean when nothing anywhere records a failure; the one line says
    // where to look.
    std::string failures;
    if (result.outcome == ExecOutcome::Completed || result.outcome == ExecOutcome::Aborted) {
      failures = WhereFailuresWereRecorded(ctx);
      if (result.outcome == ExecOutcome::Aborted && failures.empty()) {
        failures = "the messages above";
      }
      if (!failures.empty()) err << "ravelin-run: failures were recorded in: " << failures << "\n";
    }
    return ExitStatus(result.outcome, failures);
  } catch (const std::exception& e) {
    // A failure that escaped every handler of the core: report it rather than die unexplained.
    line.Erase();
    err << "ravelin-run: " << e.what() << "\n";
    out << "Outcome: " << OutcomeText(ExecOutcome::Aborted) << "\n";
    return kExitDoneWithErrors;
  }
}

}  // namespace qr::cli
