#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QDialog>
#include <QString>

#include "diagnosis/ConnectionCheck.h"
#include "diagnosis/SystemConnectionProbe.h"
#include "phone/LockdownHelper.h"
#include "platform/MainScheduler.h"
#include "platform/Worker.h"

class QLabel;
class QLineEdit;
class QPushButton;
class QVBoxLayout;

namespace ambrel {

class ActivitySpinner;
class RoundedBox;
class SymbolMark;
class ToggleSwitch;
struct ViewStyle;

// Linux's stand-in for Finder's device page, opened by the setup sheet's "Open Finder", drawn
// like the card (its glass, symbols, colours and type): each phone on USB or Wi-Fi with its
// name, model, iOS version and link; whether it trusts this computer, with "Pair" when it does
// not; a switch for "Show this iPhone when on Wi-Fi" that applies at once; and the connection
// check as a short path: the steps up to the first that failed, that one explained with what
// to do, the rest folded into one line. Every exchange with a phone runs on a worker thread
// through the helper; the window only shows results, and drops those that come back after it
// is gone. Main thread only.
class ConnectionWindow final : public QDialog {
    Q_OBJECT

public:
    static constexpr int kWidth = 500;

    // One phone's row.
    struct PhoneRow {
        std::string udid;
        bool onUsb = false;
        QLabel* name = nullptr;
        // "iPhone 13 Pro · iOS 17.4 · on USB".
        QLabel* detail = nullptr;
        SymbolMark* trustMark = nullptr;
        QLabel* trust = nullptr;
        QPushButton* pairButton = nullptr;
        ToggleSwitch* showOnWifi = nullptr;
        ActivitySpinner* wifiSpinner = nullptr;
        // What the last change of the switch came to; hidden when there is nothing to say.
        QLabel* wifiNote = nullptr;
    };

    // One step of the check's path as shown.
    struct StepLine {
        std::string name;
        SymbolMark* mark = nullptr;
        QLabel* title = nullptr;
    };

    // Where the exchanges with the phones run, and the main thread their results come back to.
    struct Background {
        std::shared_ptr<Worker> worker;
        std::shared_ptr<MainScheduler> scheduler;
    };

    // Draws with `style`, which must outlive the window.
    ConnectionWindow(const ViewStyle& style, SystemConnectionProbe::Setup setup,
                     Background background, QWidget* parent = nullptr);
    ~ConnectionWindow() override;

    // The phone the card shows, listed first; empty for none.
    void setCardPhone(const std::string& udid) { m_cardPhone = udid; }

    // Lists the phones again; runCheck() runs the connection check.
    void refresh();
    void runCheck();
    // Pairs the phone on the cable (it shows its Trust dialog), then lists and checks again.
    void trust(const std::string& udid);
    // Turns the phone's Wi-Fi connections on or off, then lists and checks again.
    void apply(const std::string& udid, bool showOnWifi);
    // Shows a check's report as its path (runCheck() does when the check ends).
    void showReport(const ConnectionReport& report);

    const std::vector<PhoneRow>& phoneRows() const { return m_rows; }
    // The one-line state of the list or of the last pairing (empty when there is nothing to say).
    QLabel* statusLabel() const { return m_status; }
    QPushButton* checkButton() const { return m_checkButton; }
    QPushButton* refreshButton() const { return m_refreshButton; }
    // The check's path: its summary, the steps shown, the problem box of the failed one (with
    // its two sentences, the command to copy and the button of what the window can do), and
    // the line the rest are folded into.
    QLabel* summaryLabel() const { return m_summary; }
    const std::vector<StepLine>& stepLines() const { return m_stepLines; }
    RoundedBox* problemBox() const { return m_problemBox; }
    QLabel* problemText() const { return m_problemWrong; }
    QLabel* adviceText() const { return m_problemToDo; }
    QLineEdit* commandField() const { return m_command; }
    QPushButton* copyButton() const { return m_copyButton; }
    QPushButton* actionButton() const { return m_actionButton; }
    QLabel* foldedLabel() const { return m_folded; }
    // How many exchanges with phones, and checks, are under way.
    int pendingWork() const { return m_pending + (m_checking ? 1 : 0); }

Q_SIGNALS:
    // The phone list was shown again (after refresh(), trust() or apply()).
    void phonesShown();
    void checkShown();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    struct PhoneEntry {
        std::string udid;
        bool onUsb = false;
        bool onWifi = false;
        std::optional<PhoneDetails> details;
        std::optional<LockdownError> error;
    };
    struct Listing {
        std::vector<PhoneEntry> phones;
        std::optional<LockdownError> error;
    };

    // Runs `work` on the worker and `done` with its result on the main thread, unless the
    // window is gone by then.
    // `exchange`: the work talks to a phone, and the buttons that would too wait for it (the
    // check only reads, and holds nothing up).
    template <typename Result>
    void inBackground(std::function<Result()> work, std::function<void(Result)> done,
                      bool exchange = true);

    static Listing listPhones(const LockdownHelper& helper);
    void showListing(Listing listing, const QString& note);
    void addPhoneRow(const PhoneEntry& entry);
    void clearRows();
    void clearPath();
    void applyLook();
    void fitHeight();
    void setBusy(bool busy);
    // The phone on the cable the path's button acts on; empty when none is.
    std::string phoneOnCable() const;

    const ViewStyle& m_style;
    SystemConnectionProbe::Setup m_setup;
    Background m_background;
    LockdownHelper m_helper;
    std::string m_cardPhone;
    QVBoxLayout* m_phoneList = nullptr;
    std::vector<QWidget*> m_phoneWidgets;
    std::vector<PhoneRow> m_rows;
    QLabel* m_status = nullptr;
    QPushButton* m_refreshButton = nullptr;
    QPushButton* m_checkButton = nullptr;
    ActivitySpinner* m_checkSpinner = nullptr;
    QLabel* m_summary = nullptr;
    QVBoxLayout* m_pathList = nullptr;
    std::vector<QWidget*> m_pathWidgets;
    std::vector<StepLine> m_stepLines;
    RoundedBox* m_problemBox = nullptr;
    QLabel* m_problemWrong = nullptr;
    QLabel* m_problemToDo = nullptr;
    QLineEdit* m_command = nullptr;
    QPushButton* m_copyButton = nullptr;
    QPushButton* m_actionButton = nullptr;
    QLabel* m_folded = nullptr;
    int m_pending = 0;
    bool m_checking = false;
};

// Opens the connection window over `parent` (the setup sheet), or brings forward the one it
// opened; either way the phones are listed again.
using ConnectionWindowOpener = std::function<void(QWidget* parent)>;

// An opener whose window looks where `setup` says, runs the tools on its launcher in
// `background` and draws with `style` (which must outlive every window it opens); `cardPhone`,
// when given, tells the udid of the phone the card shows, listed first. Copies share one window.
ConnectionWindowOpener connectionWindowOpener(const ViewStyle& style,
                                              SystemConnectionProbe::Setup setup,
                                              ConnectionWindow::Background background,
                                              std::function<std::string()> cardPhone = {});

} // namespace ambrel
