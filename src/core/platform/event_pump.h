#pragma once

namespace qr {

// Called between units of work (after each enumerated entry, per transfer and hash chunk, in
// waits on child processes). Only here can a Cancel or Skip request arrive.
class EventPump {
 public:
  virtual ~EventPump() = default;
  virtual void Pump() = 0;
};

}  // namespace qr
