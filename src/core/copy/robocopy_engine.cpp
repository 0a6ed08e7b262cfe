#include "copy/robocopy_engine.h"

#include <time.h>

#include <exception>
#include <vector>

#include "platform/errors.h"
#include "platform/process.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

namespace {

// Flags text as arguments. The splitter keeps quotes in its tokens; the tool must see the bare
// values, so they go. A token that was empty before that (an extra blank, or the blank a text
// ends in) is no argument at all; a quoted empty text ("") is kept as an empty argument.
void AppendFlagArguments(const std::string& flags, std::vector<std::string>& argv) {
  for (const std::string& token : SplitCommandLine(flags)) {
    if (token.empty()) continue;
    std::string bare;
    bare.reserve(token.size());
    for (char c : token) {
      if (c != '"') bare += c;
    }
    argv.push_back(std::move(bare));
  }
}

void PauseBetweenPolls() {
  // A millisecond between looks at the child: an idle wait for a slow copy doesn't spin a
  // core, and Cancel or Skip is still noticed at once.
  const struct timespec pause { 0, 1000000 };
  nanosleep(&pause, nullptr);
}

}  // namespace

std::vector<std::string> RobocopyArguments(const std::string& sourceFolder,
                                           const std::string& targetFolder,
                                           const std::string& fileName, const std::string& flags) {
  // Names never pass through the splitter: a quote or blank in a name can't split or merge
  // arguments.
  std::vector<std::string> argv = {"ROBOCOPY", sourceFolder, targetFolder, fileName};
  AppendFlagArguments(flags, argv);
  return argv;
}

void RunRobocopyProcess(RunContext& ctx, const std::string& commandLine,
                        const std::vector<std::string>& argv) {
  try {
    ctx.progress.lblCurrentProcess = "Current Process: Copying File";

    const StartResult started = StartHidden(argv);
    if (!started.started) throw SystemError(started.error);

    // The exit status means nothing here: the pipeline judges the copy by its target alone.
    bool ended = false;
    do {
      ended = ChildEnded(started.pid);
      ctx.pump.Pump();
      if (!ended && !ctx.counters.CancelRequested && !ctx.counters.SkipRequested) {
        PauseBetweenPolls();
      }
    } while (!ctx.counters.CancelRequested && !ended && !ctx.counters.SkipRequested);

    // Cancel and Skip stop the waiting, never the tool: it finishes its copy by itself and is
    // collected later, so it doesn't linger as a zombie.
    if (!ended) AbandonChild(started.pid);

    ctx.progress.lblCurrentProcess = "Current Process: ";
  } catch (const std::exception& e) {
    const RunError* re = dynamic_cast<const RunError*>(&e);
    const std::string number = IntText(re ? re->number() : kInternalErrorNumber);
    const std::string description = re ? re->description() : e.what();
    ReportFailure(
        ctx, "Robocopy Error:\r\n\r\n" + commandLine + "\r\n\r\n" + number + " : " + description,
        Icon::Exclamation,
        "Robocopy Error: ((" + commandLine + ")) " + number + " : " + description);
  }
}

}  // namespace qr
