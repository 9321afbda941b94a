#pragma once

#include <QFont>
#include <QString>
#include <QWidget>

#include "presentation/ColorRole.h"

namespace ambrel {
class Appearance;
}

namespace ambrel {

// One line of text in a colour role of the look in force; it never wraps. When the line is too
// long it is cut with an ellipsis (at the end or in the middle) or, first, drawn smaller down
// to a minimum scale. The widget's spoken name is its text.
class TextLine final : public QWidget {
    Q_OBJECT

public:
    enum class Fit { elideEnd, elideMiddle, shrinkThenElideEnd };

    TextLine(const Appearance& appearance, const QFont& font, ColorRole role, Fit fit,
             Qt::Alignment alignment, QWidget* parent = nullptr);

    void setText(const QString& text);
    const QString& text() const { return m_text; }
    void setColorRole(ColorRole role);
    ColorRole colorRole() const { return m_role; }
    // For shrinkThenElideEnd: the smallest scale before the text is cut (0.85 unless set).
    void setMinimumScale(qreal scale);

    // What is drawn at the current width, and at which scale.
    QString displayedText() const;
    qreal displayedScale() const;
    // The width the full text takes at its natural size.
    int naturalWidth() const;
    // Fixes the line's height to what the card has room for. A font whose own line is taller
    // (Noto Sans is a fifth taller than DejaVu Sans at the same size) is then centred on its
    // capitals and descenders, which still fit, rather than pushing the rows below it down.
    void setLineHeight(int height);
    int lineHeight() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    struct Layout {
        QString text;
        qreal scale = 1.0;
    };
    Layout layoutFor(int width) const;

    const Appearance& m_appearance;
    QString m_text;
    ColorRole m_role;
    Fit m_fit;
    Qt::Alignment m_alignment;
    qreal m_minimumScale = 0.85;
    int m_lineHeight = 0;
};

} // namespace ambrel
