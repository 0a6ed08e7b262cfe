#include "qt_event_pump.h"

#include <QCoreApplication>

namespace qr::gui {

void QtEventPump::Pump() {
  if (refresh_) refresh_();
  QCoreApplication::processEvents();
}

}  // namespace qr::gui
