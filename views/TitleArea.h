#pragma once

#include <QWidget>

namespace ambrel {

struct ViewStyle;

class PairedCellMark;
class TextLine;
class WidgetDragRegion;

// The card's title: the drag region filling the whole area and, on top of it, the mark and the
// product name. The name row lets every mouse event through, so pressing anywhere on the title
// (the text included) moves the window.
class TitleArea final : public QWidget {
    Q_OBJECT

public:
    TitleArea(const ViewStyle& style, const QString& name, QWidget* parent = nullptr);

    WidgetDragRegion* dragRegion() const { return m_dragRegion; }
    TextLine* nameLine() const { return m_name; }
    PairedCellMark* mark() const { return m_mark; }
    QWidget* nameRow() const { return m_row; }

    QSize minimumSizeHint() const override;

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    WidgetDragRegion* m_dragRegion;
    QWidget* m_row;
    PairedCellMark* m_mark;
    TextLine* m_name;
};

} // namespace ambrel
