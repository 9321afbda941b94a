#pragma once

#include <optional>
#include <string>
#include <vector>

#include <QWidget>

#include "history/HistoryStore.h"
#include "model/BatteryHealth.h"

class QLabel;
class QPushButton;

namespace ambrel {

class HistoryChart;
struct ViewStyle;

// What the window shows, gathered off the main thread (the rows) and on it (the healths).
struct HistoryWindowData {
    Date now;
    // The last ten days of each battery, oldest first.
    std::vector<HistoryRow> mac;
    std::vector<HistoryRow> phone;
    BatteryHealth macHealth;
    BatteryHealth phoneHealth;
    BatteryTimeLeft macTimeLeft;
    std::string phoneName = "iPhone";
    // Why there is no history, in the program's words; empty when there is one.
    std::string status;
};

// "Battery History": a chart per battery over 24 hours or 10 days, its health under it and,
// where the readings support one, the time to full or to empty. Escape closes it; the span
// switch and the charts take the keyboard focus in turn.
class BatteryHistoryWindow final : public QWidget {
public:
    enum class Span { day, tenDays };

    explicit BatteryHistoryWindow(const ViewStyle& style, QWidget* parent = nullptr);

    void setData(HistoryWindowData windowData);
    // A new reading while the window is open, added without reading the file again.
    void addRow(const HistoryRow& row);
    void setSpan(Span span);
    Span span() const { return m_span; }

    HistoryChart* computerChart() const { return m_macChart; }
    HistoryChart* phoneChart() const { return m_phoneChart; }

protected:
    void keyPressEvent(QKeyEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    void refresh();
    void applyLook();

    const ViewStyle& m_style;
    HistoryWindowData m_data;
    Span m_span = Span::day;
    QPushButton* m_dayButton = nullptr;
    QPushButton* m_tenDaysButton = nullptr;
    QLabel* m_status = nullptr;
    QLabel* m_macTitle = nullptr;
    QLabel* m_phoneTitle = nullptr;
    HistoryChart* m_macChart = nullptr;
    HistoryChart* m_phoneChart = nullptr;
    QLabel* m_macHealth = nullptr;
    QLabel* m_phoneHealth = nullptr;
    QLabel* m_macEstimate = nullptr;
    QLabel* m_phoneEstimate = nullptr;
};

} // namespace ambrel
