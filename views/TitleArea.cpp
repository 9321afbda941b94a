#include "views/TitleArea.h"

#include <QHBoxLayout>

#include "views/PairedCellMark.h"
#include "views/TextLine.h"
#include "views/ViewStyle.h"
#include "views/WidgetDragRegion.h"

namespace ambrel {

namespace {

constexpr int kHeight = 16;
constexpr int kMarkSpacing = 7;

} // namespace

TitleArea::TitleArea(const ViewStyle& style, const QString& name, QWidget* parent)
    : QWidget(parent), m_dragRegion(new WidgetDragRegion(this)), m_row(new QWidget(this)),
      m_mark(new PairedCellMark(m_row)),
      m_name(new TextLine(style.appearance, style.fonts.system(13, QFont::DemiBold),
                          ColorRole::primary, TextLine::Fit::shrinkThenElideEnd, Qt::AlignLeft,
                          m_row)) {
    setFixedHeight(kHeight);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    m_row->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_name->setText(name);
    m_name->setLineHeight(kHeight);
    m_name->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    auto* layout = new QHBoxLayout(m_row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(kMarkSpacing);
    layout->addWidget(m_mark, 0, Qt::AlignVCenter);
    layout->addWidget(m_name, 1, Qt::AlignVCenter);
}

QSize TitleArea::minimumSizeHint() const {
    // The name shrinks and is cut rather than claiming width from the buttons beside it.
    return {PairedCellMark::kSize, kHeight};
}

void TitleArea::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    m_dragRegion->setGeometry(rect());
    m_row->setGeometry(rect());
}

} // namespace ambrel
