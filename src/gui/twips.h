#pragma once
// Sizes of the design are in twips: 15 to a pixel at 96 dpi.
namespace qr::gui {

constexpr int TwipsToPixels(int twips) { return twips / 15; }

}  // namespace qr::gui
