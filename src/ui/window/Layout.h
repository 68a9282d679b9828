// How a progress line follows its bar's size changes, the same in both windows.
#pragma once

#include "qipg/PaymentPagePorts.h"

namespace qipg::internal {

// `frame` (set when the bar measured `oldWidth` x `oldHeight`) moved and sized by the
// autoresizing `mask` for a bar now `width` x `height`: on each axis the growth is shared
// equally by the flexible parts (leading margin, size, trailing margin); a size never goes
// below zero.
Rect autoresized(const Rect& frame, unsigned mask, double oldWidth, double oldHeight,
                 double width, double height);

}  // namespace qipg::internal
