#pragma once

#include <QColor>
#include <QImage>
#include <QWidget>
#include <gtest/gtest.h>
#include <ostream>
#include <string>

#include "presentation/WidgetBrand.h"
#include "views/Appearance.h"
#include "views/ViewFonts.h"
#include "views/ViewStyle.h"

namespace ambrel::testing {

// What a test's views draw with, as the delegate makes it: an appearance of the test's own on
// the application, the desktop's fonts (or a named family) and a product name. Made after the
// application; outlives the views made with it.
class TestStyle {
public:
    explicit TestStyle(ViewFonts fonts = ViewFonts(),
                       std::string brandName = WidgetBrand::kDefaultName);

    Appearance& appearance() { return m_appearance; }
    const ViewStyle& style() const { return m_style; }
    operator const ViewStyle&() const { return m_style; }

private:
    Appearance m_appearance;
    ViewStyle m_style;
};

// Shows `widget` (offscreen) and lets its layouts settle.
void showAndSettle(QWidget& widget);

enum class Background { window, none };

// The widget drawn into a transparent image at `devicePixelRatio`; with Background::none a
// window's palette background is left out, so only what the widget paints shows.
QImage renderWidget(QWidget& widget, qreal devicePixelRatio = 1.0,
                    Background background = Background::window);

// The colour at a logical point of an image drawn at its own device pixel ratio.
QColor pixelAt(const QImage& image, QPointF logicalPoint);

// Each of red, green and blue within `tolerance` of the other colour's.
bool closeTo(const QColor& actual, const QColor& expected, int tolerance = 6);

// A UTF-8 literal as the QString a widget shows.
inline QString q(const char* utf8) {
    return QString::fromUtf8(utf8);
}

// "light" or "dark", for the names of tests run in both looks.
inline std::string lookName(const ::testing::TestParamInfo<Look>& look) {
    return look.param == Look::light ? "light" : "dark";
}

} // namespace ambrel::testing

namespace ambrel {

// Names the look in parameterised tests' names.
inline void PrintTo(Look look, std::ostream* stream) {
    *stream << (look == Look::light ? "light" : "dark");
}

} // namespace ambrel
