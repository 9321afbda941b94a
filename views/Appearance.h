#pragma once

#include <optional>

#include <QColor>
#include <QObject>
#include <QPalette>

class QCoreApplication;

#include "presentation/ColorRole.h"

namespace ambrel {

// The two looks the widget is drawn in.
enum class Look { light, dark };

// The look in force and the colours of each look. The look is, in order of precedence: the one
// forced by the program's switches, the one the desktop reports, else the one the application
// palette suggests (a dark window colour means dark). Views repaint on lookChanged. The
// delegate makes one after the application object and before any view; main thread only.
class Appearance final : public QObject {
    Q_OBJECT

public:
    // Watches `application` for palette changes; must not outlive it.
    explicit Appearance(QCoreApplication& application);
    ~Appearance() override;

    Look look() const { return m_look; }

    // A look that overrides everything else (the light/dark preview switches); none to stop.
    void setForcedLook(std::optional<Look> look);
    std::optional<Look> forcedLook() const { return m_forcedLook; }
    // The desktop's colour scheme when it states one; none when it has no preference.
    void setSystemLook(std::optional<Look> look);
    std::optional<Look> systemLook() const { return m_systemLook; }

    // Dark when the palette's window colour is dark.
    static Look lookFromPalette(const QPalette& palette);

    // A colour role in the look in force, or in a given look.
    QColor color(ColorRole role) const { return color(role, m_look); }
    static QColor color(ColorRole role, Look look);
    // The card's translucent glass and its hairline edge.
    static QColor glassFill(Look look);
    static QColor glassEdge(Look look);
    // The faint fill behind badges and boxes (drawn at half opacity by its users).
    static QColor quaternaryFill(Look look);
    // The desktop's accent colour: the palette's highlight.
    static QColor accent();
    // A palette for windows of their own (the setup sheet, the menu) in a look.
    static QPalette windowPalette(Look look);

Q_SIGNALS:
    void lookChanged(ambrel::Look look);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void reevaluate();

    QCoreApplication& m_application;

    std::optional<Look> m_forcedLook;
    std::optional<Look> m_systemLook;
    Look m_look = Look::light;
};

} // namespace ambrel
