#include "shell/PanelPlacement.h"

#include <algorithm>

namespace ambrel::PanelPlacement {

namespace {

// QRect's right() and bottom() stop one pixel short; these are the exclusive edges.
int rightEdge(const QRect& rect) {
    return rect.x() + rect.width();
}

int bottomEdge(const QRect& rect) {
    return rect.y() + rect.height();
}

long long overlapArea(const QRect& a, const QRect& b) {
    const int width = std::min(rightEdge(a), rightEdge(b)) - std::max(a.x(), b.x());
    const int height = std::min(bottomEdge(a), bottomEdge(b)) - std::max(a.y(), b.y());
    if (width <= 0 || height <= 0) {
        return 0;
    }
    return static_cast<long long>(width) * height;
}

} // namespace

QPoint firstPlacementOrigin(const std::optional<QRect>& mainScreenArea) {
    const QRect area = mainScreenArea.value_or(kFallbackArea);
    return {rightEdge(area) - kPanelSize.width() - kFirstRunMargin, area.y() + kFirstRunMargin};
}

QRect withPanelSize(const QRect& frame) {
    return {frame.topLeft(), kPanelSize};
}

std::optional<std::size_t> screenHolding(const QRect& frame,
                                         const std::vector<QRect>& screenAreas) {
    std::optional<std::size_t> chosen;
    long long chosenArea = 0;
    for (std::size_t i = 0; i < screenAreas.size(); ++i) {
        const auto area = overlapArea(frame, screenAreas[i]);
        if (!chosen || area > chosenArea) {
            chosen = i;
            chosenArea = area;
        }
    }
    if (chosenArea == 0) {
        return std::nullopt;
    }
    return chosen;
}

std::optional<QPoint> constrainedOrigin(const QRect& frame, const std::vector<QRect>& screenAreas,
                                        const std::optional<QRect>& mainScreenArea) {
    std::optional<QRect> area;
    if (const auto index = screenHolding(frame, screenAreas)) {
        area = screenAreas[*index];
    } else {
        area = mainScreenArea;
    }
    if (!area) {
        return std::nullopt;
    }
    const QRect inset = area->adjusted(kScreenInset, kScreenInset, -kScreenInset, -kScreenInset);

    const int x = std::min(std::max(frame.x(), inset.x()),
                           std::max(inset.x(), rightEdge(inset) - frame.width()));
    // With y growing downward the bottom edge is the one that must stay inside when the panel is
    // taller than the area, so the top is clamped against the lower limit last.
    const int lowestTop = bottomEdge(inset) - frame.height();
    const int y = std::max(std::min(frame.y(), lowestTop), std::min(inset.y(), lowestTop));
    return QPoint(x, y);
}

} // namespace ambrel::PanelPlacement
