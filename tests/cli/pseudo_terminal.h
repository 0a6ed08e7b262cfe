#pragma once
// A real pseudo-terminal of a chosen width: the side a program writes to, the side a test reads.
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace qr::test {

class PseudoTerminal {
 public:
  explicit PseudoTerminal(unsigned short columns) {
    master_ = posix_openpt(O_RDWR | O_NOCTTY);
    if (master_ < 0 || grantpt(master_) != 0 || unlockpt(master_) != 0) return;
    const char* name = ptsname(master_);
    if (name == nullptr) return;
    slave_ = open(name, O_RDWR | O_NOCTTY);
    winsize ws{};
    ws.ws_col = columns;
    ws.ws_row = 24;
    if (slave_ >= 0) ioctl(slave_, TIOCSWINSZ, &ws);
  }
  ~PseudoTerminal() {
    CloseSlave();
    if (master_ >= 0) close(master_);
  }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  bool ok() const { return master_ >= 0 && slave_ >= 0; }
  int slave() const { return slave_; }
  void CloseSlave() {
    if (slave_ >= 0) close(slave_);
    slave_ = -1;
  }
  // Appends whatever the program wrote, waiting at most `timeoutMs` for the first byte.
  // False once every writer has closed its side and nothing is left.
  bool ReadInto(std::string& text, int timeoutMs) {
    pollfd p{master_, POLLIN, 0};
    if (poll(&p, 1, timeoutMs) <= 0) return true;
    char buf[4096];
    const ssize_t n = read(master_, buf, sizeof buf);
    if (n > 0) {
      text.append(buf, static_cast<size_t>(n));
      return true;
    }
    return n < 0 && errno == EINTR;
  }

 private:
  int master_ = -1;
  int slave_ = -1;
};

}  // namespace qr::test
