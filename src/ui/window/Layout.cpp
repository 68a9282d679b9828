#include "ui/window/Layout.h"

#include <algorithm>

namespace qipg::internal {
namespace {

void resizeAxis(double& origin, double& size, double delta, bool flexLeading, bool flexSize,
                bool flexTrailing) {
  const int parts = (flexLeading ? 1 : 0) + (flexSize ? 1 : 0) + (flexTrailing ? 1 : 0);
  if (parts == 0) return;
  const double share = delta / parts;
  if (flexLeading) origin += share;
  if (flexSize) size = std::max(0.0, size + share);
}

}  // namespace

Rect autoresized(const Rect& frame, unsigned mask, double oldWidth, double oldHeight,
                 double width, double height) {
  Rect out = frame;
  resizeAxis(out.x, out.width, width - oldWidth, mask & AutoresizingFlexibleLeftMargin,
             mask & AutoresizingFlexibleWidth, mask & AutoresizingFlexibleRightMargin);
  resizeAxis(out.y, out.height, height - oldHeight, mask & AutoresizingFlexibleTopMargin,
             mask & AutoresizingFlexibleHeight, mask & AutoresizingFlexibleBottomMargin);
  return out;
}

}  // namespace qipg::internal
