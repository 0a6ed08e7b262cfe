#pragma once
// The window program's pump: the window is brought up to date with the core's state, then Qt
// handles what is waiting (paints, and the Cancel button that sets CancelRequested).
#include <functional>

#include "platform/event_pump.h"

namespace qr::gui {

class QtEventPump : public EventPump {
 public:
  void setRefresh(std::function<void()> refresh) { refresh_ = std::move(refresh); }
  void Pump() override;

 private:
  std::function<void()> refresh_;
};

}  // namespace qr::gui
