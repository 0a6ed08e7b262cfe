#pragma once
// The window program's pump: the windows are brought up to date with the core's state, then Qt
// handles what is waiting (paints, timers, and the Cancel button that sets CancelRequested).
//
// A run pumps after every entry it walks and every chunk it copies or hashes: many thousands of
// times a second on small files. A person sees no difference between that and twenty rounds a
// second, while the run pays for every round (half a millisecond of drawing in the middle of a
// run), so a call does its work only when the interval has passed since the last round, and is
// otherwise a look at a coarse clock. bench/pump_bench.cpp measures both.
#include <chrono>
#include <cstdint>
#include <functional>

#include "platform/event_pump.h"

namespace qr::gui {

class QtEventPump : public EventPump {
 public:
  static constexpr std::chrono::milliseconds kInterval{50};

  explicit QtEventPump(std::chrono::nanoseconds interval = kInterval)
      : intervalNs_(interval.count()) {}
  void setRefresh(std::function<void()> refresh) { refresh_ = std::move(refresh); }
  void Pump() override;

 private:
  std::function<void()> refresh_;
  int64_t intervalNs_;
  int64_t nextNs_ = 0;  // the first call always does its round
};

}  // namespace qr::gui
