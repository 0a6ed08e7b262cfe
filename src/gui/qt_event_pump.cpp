#include "qt_event_pump.h"

#include <time.h>

#include <QCoreApplication>

namespace qr::gui {

namespace {

// The coarse monotonic clock is read without a system call and is exact to a few milliseconds,
// which is all an interval of tens of milliseconds needs.
int64_t NowNs() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &t);
  return int64_t{t.tv_sec} * 1'000'000'000 + t.tv_nsec;
}

}  // namespace

void QtEventPump::Pump() {
  if (intervalNs_ > 0) {
    const int64_t now = NowNs();
    if (now < nextNs_) return;
    nextNs_ = now + intervalNs_;
  }
  if (refresh_) refresh_();
  QCoreApplication::processEvents();
}

}  // namespace qr::gui
