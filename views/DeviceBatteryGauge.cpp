#include "views/DeviceBatteryGauge.h"

#include <QVBoxLayout>

#include "presentation/DeviceBatteryGaugeModel.h"
#include "views/GaugeRing.h"
#include "views/TextLine.h"
#include "views/ViewStyle.h"

namespace ambrel {

namespace {

constexpr int kLineSpacing = 5;
// The lines' heights: with the ring (64 padded by 2) and the spacing they fill the 102 the
// card leaves for the gauge row.
constexpr int kTitleHeight = 13;
constexpr int kStatusHeight = 11;

} // namespace

DeviceBatteryGauge::DeviceBatteryGauge(const ViewStyle& style, QWidget* parent)
    : QWidget(parent), m_ring(new GaugeRing(style, this)),
      m_title(new TextLine(style.appearance, style.fonts.system(11, QFont::Medium),
                           ColorRole::primary, TextLine::Fit::elideMiddle, Qt::AlignHCenter, this)),
      m_status(new TextLine(style.appearance, style.fonts.system(9), ColorRole::secondary,
                            TextLine::Fit::elideEnd, Qt::AlignHCenter, this)) {
    m_ring->setObjectName(QStringLiteral("ring"));
    m_title->setObjectName(QStringLiteral("title"));
    m_status->setObjectName(QStringLiteral("status"));
    m_title->setLineHeight(kTitleHeight);
    m_status->setLineHeight(kStatusHeight);
    // The two gauges share the row equally, whatever their texts.
    setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_title->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    m_status->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(kLineSpacing);
    layout->addWidget(m_ring, 0, Qt::AlignHCenter);
    layout->addWidget(m_title);
    layout->addWidget(m_status);
    layout->addStretch(1);
}

void DeviceBatteryGauge::setModel(const DeviceBatteryGaugeModel& model) {
    m_ring->setModel(model);
    m_title->setText(QString::fromStdString(model.title()));
    m_title->setToolTip(QString::fromStdString(model.titleHelp()));
    m_status->setText(QString::fromStdString(model.statusLine()));
    m_status->setColorRole(model.statusColor());
    m_status->setToolTip(QString::fromStdString(model.updateHelp()));
}

} // namespace ambrel
