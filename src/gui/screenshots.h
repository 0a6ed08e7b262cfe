#pragma once
// `quillon-ravelin --screenshots DIR`: every window of the program rendered into DIR as a PNG,
// so that anyone can look at them without a display. A sample collection in a temporary folder
// shows the progress window during a real run; the person's settings files are not touched.
#include <ostream>
#include <string>

namespace qr::gui {

// Writes main.png, progress.png and options_<n>.png (n from 0, one a page) into `dir`, naming
// each file on `out`. Returns the exit status: 0 when every picture was written.
int TakeScreenshots(const std::string& dir, std::ostream& out, std::ostream& err);

}  // namespace qr::gui
