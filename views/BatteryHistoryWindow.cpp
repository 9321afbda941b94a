#include "views/BatteryHistoryWindow.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QVBoxLayout>

#include "presentation/HistorySummary.h"
#include "presentation/HistoryTexts.h"
#include "views/HistoryChart.h"
#include "views/ViewStyle.h"

namespace ambrel {

namespace {

constexpr int kHistoryWidth = 520;
constexpr int kHistoryMargin = 18;
constexpr double kHistoryCorner = 14.0;
constexpr double kDaySeconds = 24 * 3600.0;
constexpr double kTenDaysSeconds = 10 * kDaySeconds;

QString historyText(const std::string& value) {
    return QString::fromStdString(value);
}

std::vector<HistoryRow> rowsSince(const std::vector<HistoryRow>& rows, Date from) {
    std::vector<HistoryRow> kept;
    for (const auto& row : rows) {
        if (row.time >= from) {
            kept.push_back(row);
        }
    }
    return kept;
}

} // namespace

BatteryHistoryWindow::BatteryHistoryWindow(const ViewStyle& style, QWidget* parent)
    : QWidget(parent, Qt::Window), m_style(style) {
    setWindowTitle(QString::fromUtf8(HistoryTexts::kWindowTitle));
    setObjectName(QStringLiteral("batteryHistoryWindow"));
    setFixedWidth(kHistoryWidth);

    auto* title = new QLabel(QString::fromUtf8(HistoryTexts::kWindowTitle), this);
    title->setFont(style.fonts.system(15, QFont::DemiBold));
    m_dayButton = new QPushButton(QStringLiteral("24 hours"), this);
    m_tenDaysButton = new QPushButton(QStringLiteral("10 days"), this);
    auto* group = new QButtonGroup(this);
    for (auto* button : {m_dayButton, m_tenDaysButton}) {
        button->setCheckable(true);
        button->setFlat(true);
        button->setFont(style.fonts.system(12));
        button->setCursor(Qt::PointingHandCursor);
        group->addButton(button);
    }
    m_dayButton->setChecked(true);
    m_dayButton->setAccessibleName(QStringLiteral("Show the last 24 hours"));
    m_tenDaysButton->setAccessibleName(QStringLiteral("Show the last 10 days"));
    connect(m_dayButton, &QPushButton::clicked, this, [this] { setSpan(Span::day); });
    connect(m_tenDaysButton, &QPushButton::clicked, this, [this] { setSpan(Span::tenDays); });

    auto* header = new QHBoxLayout();
    header->addWidget(title, 1);
    header->addWidget(m_dayButton);
    header->addWidget(m_tenDaysButton);

    m_status = new QLabel(this);
    m_status->setWordWrap(true);
    m_status->setFont(style.fonts.system(12));

    const auto section = [&](QLabel*& name, HistoryChart*& chart, QLabel*& health,
                             QLabel*& estimate) {
        name = new QLabel(this);
        name->setFont(style.fonts.system(13, QFont::DemiBold));
        chart = new HistoryChart(style.appearance, this);
        health = new QLabel(this);
        estimate = new QLabel(this);
        for (auto* line : {health, estimate}) {
            line->setFont(style.fonts.system(11));
            line->setTextInteractionFlags(Qt::TextSelectableByMouse);
        }
        auto* box = new QVBoxLayout();
        box->setSpacing(4);
        box->addWidget(name);
        box->addWidget(chart);
        box->addWidget(health);
        box->addWidget(estimate);
        return box;
    };

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(kHistoryMargin, kHistoryMargin, kHistoryMargin, kHistoryMargin);
    layout->setSpacing(14);
    layout->addLayout(header);
    layout->addWidget(m_status);
    layout->addLayout(section(m_macTitle, m_macChart, m_macHealth, m_macEstimate));
    layout->addLayout(section(m_phoneTitle, m_phoneChart, m_phoneHealth, m_phoneEstimate));
    layout->setSizeConstraint(QLayout::SetFixedSize);

    setTabOrder(m_dayButton, m_tenDaysButton);
    setTabOrder(m_tenDaysButton, m_macChart);
    setTabOrder(m_macChart, m_phoneChart);

    connect(&style.appearance, &Appearance::lookChanged, this, [this] { applyLook(); });
    applyLook();
    refresh();
}

void BatteryHistoryWindow::setData(HistoryWindowData windowData) {
    m_data = std::move(windowData);
    refresh();
}

void BatteryHistoryWindow::addRow(const HistoryRow& row) {
    auto& rows = row.device == "mac" ? m_data.mac : m_data.phone;
    if (!rows.empty() && row.time <= rows.back().time) {
        return;
    }
    rows.push_back(row);
    if (row.time > m_data.now) {
        m_data.now = row.time;
    }
    refresh();
}

void BatteryHistoryWindow::setSpan(Span span) {
    m_span = span;
    (span == Span::day ? m_dayButton : m_tenDaysButton)->setChecked(true);
    refresh();
}

void BatteryHistoryWindow::refresh() {
    const double seconds = m_span == Span::day ? kDaySeconds : kTenDaysSeconds;
    const std::string spanName = m_span == Span::day ? "last 24 hours" : "last 10 days";
    const Date to = m_data.now;
    const Date from = to.addingSeconds(-seconds);

    m_status->setText(historyText(m_data.status));
    m_status->setVisible(!m_data.status.empty());

    struct Part {
        QLabel* title;
        HistoryChart* chart;
        QLabel* health;
        QLabel* estimate;
        const std::vector<HistoryRow>& rows;
        std::string name;
        std::string device;
        const BatteryHealth& wear;
    };
    const Part parts[] = {
        {m_macTitle, m_macChart, m_macHealth, m_macEstimate, m_data.mac, "This computer", "mac",
         m_data.macHealth},
        {m_phoneTitle, m_phoneChart, m_phoneHealth, m_phoneEstimate, m_data.phone, m_data.phoneName,
         "iphone", m_data.phoneHealth},
    };
    for (const auto& part : parts) {
        const double gap = HistorySummaries::gapSecondsFor(part.device);
        auto rows = rowsSince(part.rows, from);
        const auto summary = HistorySummaries::summarize(rows, gap);
        part.title->setText(historyText(part.name));
        part.chart->setSeries(
            std::move(rows), from, to, gap,
            historyText(HistorySummaries::spokenSummary(part.name, spanName, summary)));
        const auto healthLine = HistoryTexts::healthLine(part.wear);
        part.health->setText(historyText(healthLine));
        part.health->setVisible(!healthLine.empty());

        // The kernel's own rate first, for the computer; else what the readings support.
        std::optional<std::pair<int, bool>> left;
        if (part.device == "mac" && m_data.macTimeLeft.minutesToFull) {
            left = std::make_pair(*m_data.macTimeLeft.minutesToFull, true);
        } else if (part.device == "mac" && m_data.macTimeLeft.minutesToEmpty) {
            left = std::make_pair(*m_data.macTimeLeft.minutesToEmpty, false);
        } else {
            left = HistorySummaries::estimate(part.rows, m_data.now, gap);
        }
        part.estimate->setText(
            left ? historyText(HistoryTexts::timeLeftLine(left->first, left->second)) : QString());
        part.estimate->setVisible(left.has_value());
    }
}

void BatteryHistoryWindow::applyLook() {
    const Look look = m_style.appearance.look();
    setPalette(Appearance::windowPalette(look));
    const QString primary = Appearance::color(ColorRole::primary, look).name(QColor::HexArgb);
    const QString secondary = Appearance::color(ColorRole::secondary, look).name(QColor::HexArgb);
    for (auto* label : {m_macTitle, m_phoneTitle, m_status}) {
        label->setStyleSheet(QStringLiteral("color: %1;").arg(primary));
    }
    for (auto* label : {m_macHealth, m_phoneHealth, m_macEstimate, m_phoneEstimate}) {
        label->setStyleSheet(QStringLiteral("color: %1;").arg(secondary));
    }
    // The span switch as a pair of quiet segments; the chosen one carries the accent.
    const QString accent = Appearance::accent().name();
    const QString segment =
        QStringLiteral("QPushButton { color: %1; border: none; padding: 3px 10px;"
                       " border-radius: 6px; }"
                       "QPushButton:checked { color: white; background: %2; }"
                       "QPushButton:focus { border: 1px solid %2; }")
            .arg(secondary, accent);
    m_dayButton->setStyleSheet(segment);
    m_tenDaysButton->setStyleSheet(segment);
    update();
}

void BatteryHistoryWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

void BatteryHistoryWindow::paintEvent(QPaintEvent*) {
    // The card's glass and hairline edge, over the window's own colour.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const Look look = m_style.appearance.look();
    painter.fillRect(rect(), Appearance::windowPalette(look).color(QPalette::Window));
    QPainterPath glass;
    glass.addRoundedRect(QRectF(rect()).adjusted(6, 6, -6, -6), kHistoryCorner, kHistoryCorner);
    painter.fillPath(glass, Appearance::glassFill(look));
    painter.setPen(QPen(Appearance::glassEdge(look), 1.0));
    painter.drawPath(glass);
}

} // namespace ambrel
