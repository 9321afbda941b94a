#pragma once

#include <functional>
#include <vector>

#include <QDialog>

class QLabel;
class QPushButton;

namespace ambrel {

class SetupStep;
struct ViewStyle;

// The help sheet on pairing the iPhone: a heading, four numbered steps, a note, the cadence
// box and three buttons. "Check batteries" calls `onRefresh` and leaves the sheet open (check,
// unplug, check again); "Done" and Escape close it; "Open Finder" calls `openConnectionWindow`
// with the sheet, which opens the connection window over it (Linux's stand-in for Finder's
// device page), and leaves the sheet open. 460 wide; its height
// follows the wrapped texts, which are never cut.
class IPhoneSetupView final : public QDialog {
    Q_OBJECT

public:
    static constexpr int kWidth = 460;

    // Draws with `style`, which must outlive the sheet.
    IPhoneSetupView(const ViewStyle& style, std::function<void()> onRefresh,
                    std::function<void(QWidget* parent)> openConnectionWindow,
                    QWidget* parent = nullptr);

    QPushButton* openFinderButton() const { return m_openFinder; }
    QPushButton* doneButton() const { return m_done; }
    QPushButton* checkBatteriesButton() const { return m_checkBatteries; }
    const std::vector<SetupStep*>& steps() const { return m_steps; }
    // Every text label of the sheet, top to bottom.
    const std::vector<QLabel*>& labels() const { return m_labels; }

private:
    QLabel* addLabel(const QString& text, const QFont& font, bool secondary);
    void applyLook();
    void fitHeight();

    const ViewStyle& m_style;
    std::function<void()> m_onRefresh;
    std::function<void(QWidget*)> m_openConnectionWindow;
    std::vector<SetupStep*> m_steps;
    std::vector<QLabel*> m_labels;
    std::vector<QLabel*> m_secondaryLabels;
    QPushButton* m_openFinder = nullptr;
    QPushButton* m_done = nullptr;
    QPushButton* m_checkBatteries = nullptr;
};

} // namespace ambrel
