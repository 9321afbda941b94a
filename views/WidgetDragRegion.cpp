#include "views/WidgetDragRegion.h"

#include "presentation/CardTexts.h"
#include "views/WindowDrag.h"

namespace ambrel {

WidgetDragRegion::WidgetDragRegion(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_NoSystemBackground);
    setToolTip(QString::fromUtf8(CardTexts::kDragHelp));
    new WindowDrag(this, [this] { Q_EMIT moveStarted(); });
}

} // namespace ambrel
