#pragma once
// The like-pattern language of filters and environment scans:
//   ?  one character        *  any run, empty included     #  one digit
//   [list] one character of the list, ranges such as a-f allowed     [!list] one not in it
// Any other character matches itself. A match covers the whole text.
#include <string_view>

namespace qr {

// Exact: no trimming, no case folding. Characters are UTF-8 code points.
bool LikeMatch(std::string_view text, std::string_view pattern);
// Both sides trimmed of blanks and lower-cased first, as the filters compare.
bool LikeMatchFolded(std::string_view text, std::string_view pattern);

}  // namespace qr
