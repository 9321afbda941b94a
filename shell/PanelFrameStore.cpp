#include "shell/PanelFrameStore.h"

#include <QVariant>

namespace ambrel {

std::optional<QRect> PanelFrameStore::load() const {
    const QVariant value = m_settings.value(QString::fromUtf8(kKey));
    if (!value.isValid() || value.typeId() != QMetaType::QRect) {
        return std::nullopt;
    }
    const QRect frame = value.toRect();
    if (frame.width() <= 0 || frame.height() <= 0) {
        return std::nullopt;
    }
    return frame;
}

void PanelFrameStore::save(const QRect& frame) {
    m_settings.setValue(QString::fromUtf8(kKey), frame);
}

void PanelFrameStore::flush() {
    m_settings.sync();
}

} // namespace ambrel
