#include "jobdef/path_variables.h"

#include <array>
#include <utility>
#include <vector>

#include "platform/dates.h"
#include "platform/machine.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "run/run_context.h"

namespace qr {

namespace {

// Where the shell stands at a point of the command: the command itself, a quote, a command
// substitution ($( ) or backquotes) or parentheses inside one.
enum class Frame { Command, Single, Double, Subst, Backquote, Paren };

// `value` as data at the top of `frames`: in single quotes it closes the quote, adds each of its
// own quotes escaped and reopens; in double quotes the four characters the shell still reads
// there are escaped; anywhere else it becomes a single-quoted word. Inside backquotes the shell
// first takes one level of \\, \` and \$ away, so each enclosing pair adds that level.
std::string QuotedFor(const std::vector<Frame>& frames, std::string_view value) {
  std::string out;
  if (frames.back() == Frame::Double) {
    for (char c : value) {
      if (c == '"' || c == '\\' || c == '$' || c == '`') out += '\\';
      out += c;
    }
  } else {
    out = ReplaceAll(std::string(value), "'", "'\\''");
    if (frames.back() != Frame::Single) out = "'" + out + "'";
  }
  for (Frame f : frames) {
    if (f != Frame::Backquote) continue;
    std::string level;
    for (char c : out) {
      if (c == '\\' || c == '`' || c == '$') level += '\\';
      level += c;
    }
    out = std::move(level);
  }
  return out;
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
  // One pass over the command as written, following the shell's quoting and substitutions, so
  // that a value is never read as code, nor as another variable.
  std::string out;
  std::vector<Frame> frames = {Frame::Command};
  bool escaped = false;
  for (size_t i = 0; i < text.size();) {
    const char c = text[i];
    const Frame top = frames.back();
    if (!escaped && c == '[') {
      bool replaced = false;
      for (const auto& [name, value] : vars) {
        if (std::string_view(text).substr(i).starts_with(name)) {
          out += QuotedFor(frames, value);
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
    } else if (top == Frame::Single) {
      if (c == '\'') frames.pop_back();
    } else if (c == '\\') {
      escaped = true;
    } else if (c == '$' && i < text.size() && text[i] == '(') {
      out += text[i++];
      frames.push_back(Frame::Subst);
    } else if (c == '`') {
      if (top == Frame::Backquote) {
        frames.pop_back();
      } else {
        frames.push_back(Frame::Backquote);
      }
    } else if (top == Frame::Double) {
      if (c == '"') frames.pop_back();
    } else if (c == '\'') {
      frames.push_back(Frame::Single);
    } else if (c == '"') {
      frames.push_back(Frame::Double);
    } else if (c == '(') {
      frames.push_back(Frame::Paren);
    } else if (c == ')' && (top == Frame::Subst || top == Frame::Paren)) {
      frames.pop_back();
    }
  }
  return out;
}

}  // namespace qr
