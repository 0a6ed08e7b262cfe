#include "jobdef/path_variables.h"

#include <array>
#include <utility>

#include "platform/dates.h"
#include "platform/machine.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

namespace {

enum class Quoting { None, Single, Double };

// `value` as data wherever it stands in a /bin/sh command: in single quotes it closes the quote,
// adds each of its own quotes escaped and reopens; in double quotes the four characters the
// shell still reads there are escaped; outside quotes it becomes a single-quoted word.
std::string QuotedFor(Quoting q, std::string_view value) {
  std::string out;
  if (q == Quoting::Double) {
    for (char c : value) {
      if (c == '"' || c == '\\' || c == '$' || c == '`') out += '\\';
      out += c;
    }
    return out;
  }
  const std::string inner = ReplaceAll(std::string(value), "'", "'\\''");
  return q == Quoting::Single ? inner : "'" + inner + "'";
}

}  // namespace

std::string ExpandVariables(const RunContext& ctx, const std::string& text) {
  const std::string drive = ProgramDrive(WithoutTrailingSep(ctx.program.app.programFolder));
  const std::array<std::pair<std::string_view, std::string>, 6> vars = {{
      {"[RoverDrive]", drive},
      {"[RVDrive]", drive},
      {"[JobName]", ctx.job.JobName},
      {"[CName]", ComputerName()},
      {"[UName]", UserName()},
      {"[Date]", MediumDate(ToLocal(Clock::now()))},
  }};
  // One pass over the command as written, following the shell's quoting, so that a value is
  // never read as code, nor as another variable.
  std::string out;
  Quoting q = Quoting::None;
  bool escaped = false;
  for (size_t i = 0; i < text.size();) {
    const char c = text[i];
    if (!escaped && c == '[') {
      bool replaced = false;
      for (const auto& [name, value] : vars) {
        if (std::string_view(text).substr(i).starts_with(name)) {
          out += QuotedFor(q, value);
          i += name.size();
          replaced = true;
          break;
        }
      }
      if (replaced) continue;
    }
    out += c;
    ++i;
    if (escaped) {
      escaped = false;
    } else if (c == '\\' && q != Quoting::Single) {
      escaped = true;
    } else if (c == '\'' && q != Quoting::Double) {
      q = q == Quoting::Single ? Quoting::None : Quoting::Single;
    } else if (c == '"' && q != Quoting::Single) {
      q = q == Quoting::Double ? Quoting::None : Quoting::Double;
    }
  }
  return out;
}

}  // namespace qr
