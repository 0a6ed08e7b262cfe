#pragma once
// Where a source lands, the collision rule, and the creation of target folders level by level,
// each new level stamped with its source folder's times.
#include <cstdint>
#include <string>

namespace qr {

class RunContext;

// The target folder of a source folder (which carries a trailing separator), with a trailing
// separator, under the layout options of the job.
std::string GetTargetFolder(RunContext& ctx, const std::string& sourceFolder);
// The full target file path; with the rename collision mode, the first free "(n)" name.
std::string GetTargetFilePath(RunContext& ctx, const std::string& sourceFilePath);
// True when something that is no folder has the name: a file, or a link even where it leads
// nowhere. The collision rule counts either as an existing file.
bool TargetNameTaken(RunContext& ctx, const std::string& path);
// The path itself when no file has that name, else the first free "name(n).ext".
std::string GetCollisionName(RunContext& ctx, const std::string& path);
// Creates a folder (one trailing separator cut first). 0, or the errno of the failed creation.
int32_t CreateOneDirectory(RunContext& ctx, const std::string& path);
// Creates every missing level of `targetFolder` below its first component. With a blank
// `sourceFolder` the levels are only created; with one, each new level gets the times of the
// matching source folder from the moment it exists. The last creation's result, -1 after a
// failure of the routine itself.
int32_t CreateTargetDirs(RunContext& ctx, const std::string& targetFolder,
                         const std::string& sourceFolder);

}  // namespace qr
