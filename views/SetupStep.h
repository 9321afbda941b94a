#pragma once

#include <QFont>
#include <QWidget>

#include "presentation/SetupStepText.h"

class QLabel;

namespace ambrel {

class Appearance;
struct ViewStyle;

// One numbered step of the setup sheet: a round badge with the number, then the step's title
// and its detail, which wraps onto as many lines as it needs.
class SetupStep final : public QWidget {
    Q_OBJECT

public:
    SetupStep(const ViewStyle& style, const SetupStepText& text, QWidget* parent = nullptr);

    const QString& number() const { return m_number; }
    QLabel* titleLabel() const { return m_title; }
    QLabel* detailLabel() const { return m_detail; }
    void applyLook();

    static constexpr int kBadgeSize = 25;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    const Appearance& m_appearance;
    QString m_number;
    QLabel* m_title;
    QLabel* m_detail;
    QFont m_badgeFont;
};

} // namespace ambrel
