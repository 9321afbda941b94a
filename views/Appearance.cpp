#include "views/Appearance.h"

#include <QEvent>
#include <QGuiApplication>

namespace ambrel {

Appearance::Appearance(QCoreApplication& application) : m_application(application) {
    m_look = lookFromPalette(QGuiApplication::palette());
    m_application.installEventFilter(this);
}

Appearance::~Appearance() {
    m_application.removeEventFilter(this);
}

void Appearance::setForcedLook(std::optional<Look> look) {
    m_forcedLook = look;
    reevaluate();
}

void Appearance::setSystemLook(std::optional<Look> look) {
    m_systemLook = look;
    reevaluate();
}

Look Appearance::lookFromPalette(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < 128 ? Look::dark : Look::light;
}

bool Appearance::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::ApplicationPaletteChange && watched == &m_application) {
        reevaluate();
    }
    return QObject::eventFilter(watched, event);
}

void Appearance::reevaluate() {
    const Look look =
        m_forcedLook ? *m_forcedLook
                     : (m_systemLook ? *m_systemLook : lookFromPalette(QGuiApplication::palette()));
    if (look != m_look) {
        m_look = look;
        Q_EMIT lookChanged(look);
    }
}

QColor Appearance::color(ColorRole role, Look look) {
    const bool dark = look == Look::dark;
    switch (role) {
    case ColorRole::primary:
        return dark ? QColor(255, 255, 255, 235) : QColor(0, 0, 0, 220);
    case ColorRole::secondary:
        // Dense enough for small text to keep 4.5:1 against the glass over a black or a white
        // desktop; the desktop shows through the glass, so both ends count.
        return dark ? QColor(235, 235, 245, 190) : QColor(60, 60, 67, 230);
    case ColorRole::green:
        return dark ? QColor(0x30, 0xD1, 0x58) : QColor(0x34, 0xC7, 0x59);
    case ColorRole::orange:
        return dark ? QColor(0xFF, 0x9F, 0x0A) : QColor(0xFF, 0x95, 0x00);
    case ColorRole::red:
        return dark ? QColor(0xFF, 0x45, 0x3A) : QColor(0xFF, 0x3B, 0x30);
    }
    return {};
}

QColor Appearance::glassFill(Look look) {
    // Without a blur behind it the glass must carry the text on its own, so it is fairly dense.
    return look == Look::dark ? QColor(36, 36, 40, 214) : QColor(248, 248, 250, 219);
}

QColor Appearance::glassEdge(Look look) {
    return look == Look::dark ? QColor(255, 255, 255, 38) : QColor(0, 0, 0, 26);
}

QColor Appearance::quaternaryFill(Look look) {
    return look == Look::dark ? QColor(118, 118, 128, 82) : QColor(116, 116, 128, 46);
}

QColor Appearance::accent() {
    return QGuiApplication::palette().color(QPalette::Active, QPalette::Highlight);
}

QPalette Appearance::windowPalette(Look look) {
    const bool dark = look == Look::dark;
    const QColor window = dark ? QColor(40, 40, 44) : QColor(242, 242, 245);
    const QColor button = dark ? QColor(72, 72, 78) : QColor(255, 255, 255);
    const QColor text = dark ? QColor(240, 240, 245) : QColor(20, 20, 22);
    QPalette palette(button, window);
    for (const auto role :
         {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::BrightText}) {
        palette.setColor(role, text);
    }
    palette.setColor(QPalette::Base, dark ? QColor(30, 30, 33) : QColor(255, 255, 255));
    palette.setColor(QPalette::AlternateBase, dark ? QColor(48, 48, 52) : QColor(235, 235, 240));
    palette.setColor(QPalette::Highlight, accent());
    palette.setColor(QPalette::HighlightedText, QColor(255, 255, 255));
    palette.setColor(QPalette::PlaceholderText, color(ColorRole::secondary, look));
    const QColor disabledText = dark ? QColor(140, 140, 148) : QColor(150, 150, 156);
    for (const auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        palette.setColor(QPalette::Disabled, role, disabledText);
    }
    // Styles etch disabled text with the light colour; on a dark window that reads as a smear.
    palette.setColor(QPalette::Disabled, QPalette::Light, Qt::transparent);
    return palette;
}

} // namespace ambrel
