#pragma once

#include <string>
#include <vector>

#include <QWidget>

#include "history/HistoryStore.h"
#include "presentation/HistorySummary.h"
#include "views/Appearance.h"

namespace ambrel {

// One battery's level over a span as a line, its charging periods shaded and its gaps left
// open. Drawn with QPainter from rows already in memory; the spoken summary is its accessible
// name.
class HistoryChart final : public QWidget {
public:
    static constexpr int kHeight = 118;

    HistoryChart(const Appearance& appearance, QWidget* parent = nullptr);

    // Shows `rows` (one device, oldest first) between `from` and `to`.
    void setSeries(std::vector<HistoryRow> rows, Date from, Date to, double gapSeconds,
                   const QString& spokenSummary);
    const HistorySummary& summary() const { return m_summary; }

    QSize sizeHint() const override { return {480, kHeight}; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QRectF plotArea() const;
    double xFor(Date when, const QRectF& area) const;
    double yFor(int percentage, const QRectF& area) const;

    const Appearance& m_appearance;
    HistorySummary m_summary;
    Date m_from;
    Date m_to;
};

} // namespace ambrel
