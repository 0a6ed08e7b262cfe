#pragma once
#include <string>

namespace qr::cli {

// A path from the command line or the terminal, made absolute against the current folder and
// tidied lexically ("." and ".." steps folded, no trailing separator except on "/"). Symbolic
// links are left as they are: the path the person named is the path that appears in the logs.
// Empty when the current folder can't be had.
std::string AbsolutePath(const std::string& path);

}  // namespace qr::cli
