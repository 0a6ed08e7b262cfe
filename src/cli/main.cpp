#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "run_command.h"

int main(int argc, char** argv) {
  qr::cli::InstallInterruptHandler();
  std::vector<std::string> args(argv + 1, argv + argc);
  return qr::cli::RunCommand(args, std::cin, std::cout, std::cerr, isatty(STDIN_FILENO) != 0,
                             isatty(STDERR_FILENO) != 0 ? STDERR_FILENO : -1);
}
