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

class QCheckBox;
class QLabel;
class QPushButton;
class QVBoxLayout;

namespace ambrel {

struct ViewStyle;

// Linux's stand-in for Finder's device page, opened by the setup sheet's "Open Finder": each
// phone on USB or Wi-Fi with its name, model and connection; whether it trusts this computer,
// with "Trust" (pairing: the phone shows its Trust dialog) when it does not; "Show this iPhone
// when on Wi-Fi" with "Apply"; and the connection check. Every exchange with a phone runs on a
// worker thread through the helper; the window only shows results, and drops those that come
// back after it is gone. Main thread only.
class ConnectionWindow final : public QDialog {
    Q_OBJECT

public:
    static constexpr int kWidth = 520;

    // One phone's row.
    struct PhoneRow {
        std::string udid;
        QLabel* name = nullptr;
        QLabel* detail = nullptr;
        QLabel* trust = nullptr;
        QPushButton* trustButton = nullptr;
        QCheckBox* showOnWifi = nullptr;
        QPushButton* apply = nullptr;
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

    // Lists the phones again; the check runs only when asked.
    void refresh();
    void runCheck();
    void trust(const std::string& udid);
    void apply(const std::string& udid, bool showOnWifi);

    const std::vector<PhoneRow>& phoneRows() const { return m_rows; }
    // The one-line state of the list or of the last action (empty when there is nothing to say).
    QLabel* statusLabel() const { return m_status; }
    QPushButton* checkButton() const { return m_checkButton; }
    QPushButton* refreshButton() const { return m_refreshButton; }
    // One label per check of the last run, in order.
    const std::vector<QLabel*>& checkLines() const { return m_checkLines; }
    // How many exchanges with phones are under way.
    int pendingWork() const { return m_pending; }

Q_SIGNALS:
    // The phone list was shown again (after refresh(), trust() or apply()).
    void phonesShown();
    void checkShown();

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
    template <typename Result>
    void inBackground(std::function<Result()> work, std::function<void(Result)> done);

    static Listing listPhones(const LockdownHelper& helper);
    void showListing(const Listing& listing, const QString& note);
    void showReport(const ConnectionReport& report);
    void clearRows();
    void applyLook();
    void fitHeight();
    void setBusy(bool busy);

    const ViewStyle& m_style;
    SystemConnectionProbe::Setup m_setup;
    Background m_background;
    LockdownHelper m_helper;
    QVBoxLayout* m_phoneList = nullptr;
    std::vector<QWidget*> m_phoneWidgets;
    std::vector<PhoneRow> m_rows;
    QLabel* m_status = nullptr;
    QPushButton* m_refreshButton = nullptr;
    QPushButton* m_checkButton = nullptr;
    QVBoxLayout* m_checkList = nullptr;
    std::vector<QLabel*> m_checkLines;
    std::vector<QLabel*> m_secondaryLabels;
    int m_pending = 0;
};

// Opens the connection window over `parent` (the setup sheet), or brings forward the one it
// opened; either way the phones are listed again.
using ConnectionWindowOpener = std::function<void(QWidget* parent)>;

// An opener whose window looks where `setup` says, runs the tools on its launcher in
// `background` and draws with `style` (which must outlive every window it opens). Copies share
// one window.
ConnectionWindowOpener connectionWindowOpener(const ViewStyle& style,
                                              SystemConnectionProbe::Setup setup,
                                              ConnectionWindow::Background background);

} // namespace ambrel
