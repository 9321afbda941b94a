#include "views/SetupStep.h"

#include <QLabel>
#include <QPainter>
#include <QVBoxLayout>

#include "views/Appearance.h"
#include "views/ViewStyle.h"

namespace ambrel {

namespace {

constexpr int kBadgeGap = 12;
constexpr int kTextSpacing = 4;

} // namespace

SetupStep::SetupStep(const ViewStyle& style, const SetupStepText& text, QWidget* parent)
    : QWidget(parent), m_appearance(style.appearance),
      m_number(QString::fromStdString(text.number)),
      m_title(new QLabel(QString::fromStdString(text.title), this)),
      m_detail(new QLabel(QString::fromStdString(text.detail), this)),
      m_badgeFont(style.fonts.system(11, QFont::DemiBold)) {
    for (QLabel* label : {m_title, m_detail}) {
        label->setTextFormat(Qt::PlainText);
        label->setWordWrap(true);
        label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    }
    m_title->setFont(style.fonts.system(12, QFont::DemiBold));
    m_detail->setFont(style.fonts.system(11));
    setAccessibleName(m_number);

    // The badge is drawn in the left margin; the texts start after it.
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(kBadgeSize + kBadgeGap, 0, 0, 0);
    layout->setSpacing(kTextSpacing);
    layout->addWidget(m_title);
    layout->addWidget(m_detail);
    setMinimumHeight(kBadgeSize);
    applyLook();
}

void SetupStep::applyLook() {
    const Look look = m_appearance.look();
    QPalette titlePalette = m_title->palette();
    titlePalette.setColor(QPalette::WindowText, Appearance::color(ColorRole::primary, look));
    m_title->setPalette(titlePalette);
    QPalette detailPalette = m_detail->palette();
    detailPalette.setColor(QPalette::WindowText, Appearance::color(ColorRole::secondary, look));
    m_detail->setPalette(detailPalette);
    update();
}

void SetupStep::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF badge(0, 0, kBadgeSize, kBadgeSize);
    painter.setPen(Qt::NoPen);
    painter.setOpacity(0.5);
    painter.setBrush(Appearance::quaternaryFill(m_appearance.look()));
    painter.drawEllipse(badge);
    painter.setOpacity(1.0);
    painter.setFont(m_badgeFont);
    painter.setPen(Appearance::accent());
    painter.drawText(badge, Qt::AlignCenter, m_number);
}

} // namespace ambrel
