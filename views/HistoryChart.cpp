#include "views/HistoryChart.h"

#include <cmath>

#include <QDateTime>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>

namespace ambrel {

namespace {

constexpr double kLeftGutter = 34.0;
constexpr double kBottomGutter = 16.0;
constexpr double kTopPad = 6.0;
constexpr double kRightPad = 6.0;
constexpr int kLabelPixels = 10;

// The line takes the gauge's colour for the level it ends at.
ColorRole lineRoleFor(int percentage) {
    if (percentage <= 10) {
        return ColorRole::red;
    }
    if (percentage <= 20) {
        return ColorRole::orange;
    }
    return ColorRole::green;
}

QDateTime localTime(Date when) {
    return QDateTime::fromMSecsSinceEpoch(static_cast<qint64>(when.secondsSince1970() * 1000.0));
}

} // namespace

HistoryChart::HistoryChart(const Appearance& appearance, QWidget* parent)
    : QWidget(parent), m_appearance(appearance) {
    setMinimumHeight(kHeight);
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_OpaquePaintEvent, false);
}

void HistoryChart::setSeries(std::vector<HistoryRow> rows, Date from, Date to, double gapSeconds,
                             const QString& spokenSummary) {
    m_from = from;
    m_to = to;
    m_summary = HistorySummaries::summarize(rows, gapSeconds);
    setAccessibleName(spokenSummary);
    update();
}

QRectF HistoryChart::plotArea() const {
    return QRectF(kLeftGutter, kTopPad, width() - kLeftGutter - kRightPad,
                  height() - kTopPad - kBottomGutter);
}

double HistoryChart::xFor(Date when, const QRectF& area) const {
    const double span = m_to.secondsSince(m_from);
    const double share = span > 0 ? when.secondsSince(m_from) / span : 0.0;
    return area.left() + std::clamp(share, 0.0, 1.0) * area.width();
}

double HistoryChart::yFor(int percentage, const QRectF& area) const {
    return area.bottom() - std::clamp(percentage, 0, 100) / 100.0 * area.height();
}

void HistoryChart::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const Look look = m_appearance.look();
    const QRectF area = plotArea();
    const QColor secondary = Appearance::color(ColorRole::secondary, look);

    QFont small = font();
    small.setPixelSize(kLabelPixels);
    painter.setFont(small);

    // Level lines at 0, 50 and 100 %.
    QColor grid = secondary;
    grid.setAlphaF(0.25);
    for (const int level : {0, 50, 100}) {
        const double y = yFor(level, area);
        painter.setPen(QPen(grid, level == 0 ? 1.0 : 0.5));
        painter.drawLine(QPointF(area.left(), y), QPointF(area.right(), y));
        painter.setPen(secondary);
        painter.drawText(QRectF(0, y - 7, kLeftGutter - 6, 14), Qt::AlignRight | Qt::AlignVCenter,
                         QStringLiteral("%1 %").arg(level));
    }

    // Time marks: every six hours for a day, every other midnight for longer spans.
    const double span = m_to.secondsSince(m_from);
    const bool days = span > 2 * 86400.0;
    const QDateTime first = localTime(m_from);
    QDateTime mark = days ? QDateTime(first.date().addDays(1), QTime(0, 0))
                          : QDateTime(first.date(), QTime(first.time().hour() / 6 * 6, 0));
    if (!days && mark < first) {
        mark = mark.addSecs(6 * 3600);
    }
    const QLocale locale;
    for (int guard = 0; guard < 32 && mark <= localTime(m_to); ++guard) {
        const Date when = Date::fromSecondsSince1970(static_cast<double>(mark.toSecsSinceEpoch()));
        const double x = xFor(when, area);
        painter.setPen(QPen(grid, 0.5));
        painter.drawLine(QPointF(x, area.top()), QPointF(x, area.bottom()));
        painter.setPen(secondary);
        const QString label = days ? locale.toString(mark.date(), QStringLiteral("ddd d"))
                                   : locale.toString(mark.time(), QStringLiteral("HH:mm"));
        painter.drawText(QRectF(x - 30, area.bottom() + 2, 60, kBottomGutter - 2),
                         Qt::AlignHCenter | Qt::AlignTop, label);
        mark = days ? mark.addDays(2) : mark.addSecs(6 * 3600);
    }

    if (hasFocus()) {
        painter.setPen(QPen(Appearance::accent(), 1.5));
        painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), 6, 6);
    }

    if (m_summary.isEmpty()) {
        painter.setPen(secondary);
        painter.drawText(area, Qt::AlignCenter, QStringLiteral("No readings"));
        return;
    }

    // Charging periods, shaded behind the line.
    QColor shade = Appearance::color(ColorRole::green, look);
    shade.setAlphaF(look == Look::dark ? 0.22 : 0.16);
    for (const auto& [start, end] : m_summary.chargingSpans) {
        const double left = xFor(start, area);
        const double right = std::max(xFor(end, area), left + 1.0);
        painter.fillRect(QRectF(left, area.top(), right - left, area.height()), shade);
    }

    // One line per run of readings: nothing is drawn across a gap. Points closer than half a
    // pixel to the last one drawn add nothing but time.
    const QColor line = Appearance::color(lineRoleFor(m_summary.last.value_or(100)), look);
    painter.setPen(QPen(line, 1.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    for (const auto& run : m_summary.runs) {
        if (run.size() == 1) {
            const QPointF point(xFor(run.front().time, area), yFor(run.front().percentage, area));
            painter.setBrush(line);
            painter.drawEllipse(point, 1.6, 1.6);
            painter.setBrush(Qt::NoBrush);
            continue;
        }
        QPainterPath path;
        QPointF last(xFor(run.front().time, area), yFor(run.front().percentage, area));
        path.moveTo(last);
        for (std::size_t index = 1; index < run.size(); ++index) {
            const QPointF point(xFor(run[index].time, area), yFor(run[index].percentage, area));
            if (index + 1 < run.size() && std::abs(point.x() - last.x()) < 0.5 &&
                std::abs(point.y() - last.y()) < 0.5) {
                continue;
            }
            path.lineTo(point);
            last = point;
        }
        painter.drawPath(path);
    }
}

} // namespace ambrel
