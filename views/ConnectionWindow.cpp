#include "views/ConnectionWindow.h"

#include <algorithm>
#include <memory>
#include <set>
#include <utility>

#include <QCheckBox>
#include <QCoreApplication>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include "views/Appearance.h"
#include "views/ViewStyle.h"

namespace ambrel {

namespace {

constexpr int kWindowPadding = 22;
constexpr int kWindowSpacing = 14;

QString windowText(const std::string& utf8) {
    return QString::fromStdString(utf8);
}

QString connectionText(bool onUsb, bool onWifi) {
    if (onUsb && onWifi) {
        return QStringLiteral("USB and Wi-Fi");
    }
    const auto word = phoneLinkText(onUsb ? PhoneLink::usb : PhoneLink::wifi);
    return QString::fromUtf8(word.data(), static_cast<qsizetype>(word.size()));
}

QString statusMark(CheckStatus status) {
    switch (status) {
    case CheckStatus::passed:
        return QString::fromUtf8("\u2713");
    case CheckStatus::failed:
        return QString::fromUtf8("\u2717");
    case CheckStatus::skipped:
        break;
    }
    return QString::fromUtf8("\u2013");
}

QLabel* wrappedLabel(const QString& content, const QFont& font, QWidget* parent) {
    auto* label = new QLabel(content, parent);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setFont(font);
    return label;
}

} // namespace

ConnectionWindow::ConnectionWindow(const ViewStyle& style, SystemConnectionProbe::Setup setup,
                                   Background background, QWidget* parent)
    : QDialog(parent), m_style(style), m_setup(std::move(setup)),
      m_background(std::move(background)), m_helper(m_setup.toolDirectory, m_setup.launcher) {
    setWindowTitle(QStringLiteral("iPhone Connection \u00b7 ") + windowText(style.brandName));

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(kWindowPadding, kWindowPadding, kWindowPadding, kWindowPadding);
    layout->setSpacing(kWindowSpacing);

    layout->addWidget(
        wrappedLabel(QStringLiteral("iPhones"), m_style.fonts.system(17, QFont::DemiBold), this));
    m_phoneList = new QVBoxLayout();
    m_phoneList->setSpacing(kWindowSpacing);
    layout->addLayout(m_phoneList);
    m_status = wrappedLabel(QString(), m_style.fonts.system(12), this);
    m_secondaryLabels.push_back(m_status);
    layout->addWidget(m_status);

    auto* line = new QFrame(this);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    layout->addWidget(line);

    layout->addWidget(wrappedLabel(QStringLiteral("Connection check"),
                                   m_style.fonts.system(17, QFont::DemiBold), this));
    m_checkList = new QVBoxLayout();
    m_checkList->setSpacing(4);
    layout->addLayout(m_checkList);

    auto* buttons = new QHBoxLayout();
    m_refreshButton = new QPushButton(QStringLiteral("Refresh"), this);
    m_checkButton = new QPushButton(QStringLiteral("Check Connection"), this);
    m_refreshButton->setAutoDefault(false);
    m_checkButton->setAutoDefault(false);
    buttons->addWidget(m_refreshButton);
    buttons->addStretch(1);
    buttons->addWidget(m_checkButton);
    layout->addLayout(buttons);
    layout->addStretch(1);

    connect(m_refreshButton, &QPushButton::clicked, this, [this] { refresh(); });
    connect(m_checkButton, &QPushButton::clicked, this, [this] { runCheck(); });
    connect(&style.appearance, &Appearance::lookChanged, this, [this] { applyLook(); });
    applyLook();
    fitHeight();
}

ConnectionWindow::~ConnectionWindow() = default;

void ConnectionWindow::fitHeight() {
    // The width is fixed, so the height is whatever the wrapped texts need at that width.
    QLayout* content = layout();
    content->invalidate();
    content->activate();
    const int height = content->hasHeightForWidth() ? content->totalHeightForWidth(kWidth)
                                                    : content->totalSizeHint().height();
    setFixedSize(kWidth, std::max(height, content->totalMinimumSize().height()));
}

ConnectionWindowOpener connectionWindowOpener(const ViewStyle& style,
                                              SystemConnectionProbe::Setup setup,
                                              ConnectionWindow::Background background) {
    auto opened = std::make_shared<QPointer<ConnectionWindow>>();
    return [&style, setup = std::move(setup), background = std::move(background),
            opened](QWidget* parent) {
        if (opened->isNull()) {
            *opened = new ConnectionWindow(style, setup, background, parent);
            (*opened)->setAttribute(Qt::WA_DeleteOnClose);
        }
        ConnectionWindow* window = *opened;
        window->show();
        window->raise();
        window->activateWindow();
        window->refresh();
    };
}

template <typename Result>
void ConnectionWindow::inBackground(std::function<Result()> work,
                                    std::function<void(Result)> done) {
    ++m_pending;
    setBusy(true);
    QPointer<ConnectionWindow> self(this);
    // The job holds the scheduler weakly: a result that comes back after the program has begun
    // to end goes nowhere. On the main thread it looks for the window, which may be gone.
    std::weak_ptr<MainScheduler> weakScheduler = m_background.scheduler;
    m_background.worker->run([self, weakScheduler, work = std::move(work), done = std::move(done)] {
        auto result = std::make_shared<Result>(work());
        if (auto scheduler = weakScheduler.lock()) {
            scheduler->post([self, done, result] {
                if (self.isNull()) {
                    return;
                }
                --self->m_pending;
                self->setBusy(self->m_pending > 0);
                done(std::move(*result));
            });
        }
    });
}

ConnectionWindow::Listing ConnectionWindow::listPhones(const LockdownHelper& helper) {
    Listing listing;
    const auto phones = helper.listPhones();
    if (!phones) {
        listing.error = phones.error();
        return listing;
    }
    for (const auto& phone : phones.value()) {
        auto found =
            std::find_if(listing.phones.begin(), listing.phones.end(),
                         [&phone](const PhoneEntry& entry) { return entry.udid == phone.udid; });
        if (found == listing.phones.end()) {
            listing.phones.push_back({phone.udid, false, false, std::nullopt, std::nullopt});
            found = listing.phones.end() - 1;
        }
        (phone.link == PhoneLink::usb ? found->onUsb : found->onWifi) = true;
    }
    for (auto& entry : listing.phones) {
        auto details = helper.details(entry.udid);
        if (details) {
            entry.details = details.value();
        } else {
            entry.error = details.error();
        }
    }
    return listing;
}

void ConnectionWindow::refresh() {
    const LockdownHelper helper = m_helper;
    inBackground<Listing>([helper] { return listPhones(helper); },
                          [this](Listing listing) { showListing(listing, QString()); });
}

void ConnectionWindow::trust(const std::string& udid) {
    m_status->setText(QString::fromUtf8("Unlock your iPhone and choose Trust when it asks\u2026"));
    const LockdownHelper helper = m_helper;
    struct Outcome {
        bool paired = false;
        Listing listing;
    };
    inBackground<Outcome>(
        [helper, udid] {
            Outcome outcome;
            outcome.paired = helper.pair(udid).hasValue();
            outcome.listing = listPhones(helper);
            return outcome;
        },
        [this](Outcome outcome) {
            showListing(outcome.listing,
                        outcome.paired ? QStringLiteral("This computer is now trusted.")
                                       : QStringLiteral("Unlock your iPhone, click Trust again "
                                                        "and choose Trust on the iPhone."));
        });
}

void ConnectionWindow::apply(const std::string& udid, bool showOnWifi) {
    const LockdownHelper helper = m_helper;
    struct Outcome {
        std::optional<bool> enabled;
        std::optional<LockdownError> error;
        Listing listing;
    };
    inBackground<Outcome>(
        [helper, udid, showOnWifi] {
            Outcome outcome;
            const auto result = helper.wifiConnections(udid, showOnWifi);
            if (result) {
                outcome.enabled = result.value();
            } else {
                outcome.error = result.error();
            }
            outcome.listing = listPhones(helper);
            return outcome;
        },
        [this](Outcome outcome) {
            QString note;
            if (outcome.error) {
                note = windowText(
                    ConnectionCheck::adviceFor(*outcome.error, CheckPlace::connectionWindow));
            } else {
                note = *outcome.enabled ? QStringLiteral("Wi-Fi connections are now on.")
                                        : QStringLiteral("Wi-Fi connections are now off.");
            }
            showListing(outcome.listing, note);
        });
}

void ConnectionWindow::runCheck() {
    const SystemConnectionProbe::Setup setup = m_setup;
    inBackground<ConnectionReport>(
        [setup] {
            SystemConnectionProbe probe(setup);
            return ConnectionCheck::run(probe, CheckPlace::connectionWindow);
        },
        [this](ConnectionReport report) { showReport(report); });
}

void ConnectionWindow::clearRows() {
    for (QWidget* widget : m_phoneWidgets) {
        widget->deleteLater();
        widget->hide();
    }
    m_phoneWidgets.clear();
    m_rows.clear();
}

void ConnectionWindow::showListing(const Listing& listing, const QString& note) {
    clearRows();
    QString status = note;
    if (listing.error) {
        status =
            windowText(ConnectionCheck::adviceFor(*listing.error, CheckPlace::connectionWindow));
    } else if (listing.phones.empty() && status.isEmpty()) {
        status = QStringLiteral("No iPhone is connected: connect your iPhone with a USB cable "
                                "and unlock it.");
    }
    for (const auto& entry : listing.phones) {
        auto* box = new QFrame(this);
        box->setFrameShape(QFrame::StyledPanel);
        auto* rows = new QVBoxLayout(box);
        rows->setSpacing(6);
        PhoneRow row;
        row.udid = entry.udid;
        const PhoneDetails* details = entry.details ? &*entry.details : nullptr;
        const QString name = details && !details->name.empty() ? windowText(details->name)
                                                               : QStringLiteral("iPhone");
        row.name = wrappedLabel(name, m_style.fonts.system(14, QFont::DemiBold), box);
        QString detail = (details && !details->model.empty()
                              ? windowText(details->model) + QStringLiteral(" \u00b7 ")
                              : QString()) +
                         connectionText(entry.onUsb, entry.onWifi);
        row.detail = wrappedLabel(detail, m_style.fonts.system(12), box);
        rows->addWidget(row.name);
        rows->addWidget(row.detail);

        auto* trustLine = new QHBoxLayout();
        QString trustText;
        if (entry.error) {
            trustText =
                windowText(ConnectionCheck::adviceFor(*entry.error, CheckPlace::connectionWindow));
        } else {
            trustText = details->trusted ? QStringLiteral("This computer is trusted.")
                                         : QStringLiteral("This computer is not trusted.");
        }
        row.trust = wrappedLabel(trustText, m_style.fonts.system(12), box);
        trustLine->addWidget(row.trust, 1);
        if (details && !details->trusted && entry.onUsb) {
            row.trustButton = new QPushButton(QStringLiteral("Trust"), box);
            row.trustButton->setAutoDefault(false);
            const std::string udid = entry.udid;
            connect(row.trustButton, &QPushButton::clicked, this, [this, udid] { trust(udid); });
            trustLine->addWidget(row.trustButton);
        }
        rows->addLayout(trustLine);

        auto* wifiLine = new QHBoxLayout();
        row.showOnWifi = new QCheckBox(QStringLiteral("Show this iPhone when on Wi-Fi"), box);
        row.showOnWifi->setChecked(details && details->wifiConnections.value_or(false));
        // The setting is changed over the cable, by a computer the phone trusts.
        const bool changeable = details && details->trusted && entry.onUsb;
        row.showOnWifi->setEnabled(changeable);
        row.apply = new QPushButton(QStringLiteral("Apply"), box);
        row.apply->setAutoDefault(false);
        row.apply->setEnabled(false);
        const bool shown = row.showOnWifi->isChecked();
        QPushButton* applyButton = row.apply;
        connect(row.showOnWifi, &QCheckBox::toggled, applyButton,
                [applyButton, shown](bool checked) { applyButton->setEnabled(checked != shown); });
        const std::string udid = entry.udid;
        QCheckBox* checkBox = row.showOnWifi;
        connect(row.apply, &QPushButton::clicked, this,
                [this, udid, checkBox] { apply(udid, checkBox->isChecked()); });
        wifiLine->addWidget(row.showOnWifi, 1);
        wifiLine->addWidget(row.apply);
        rows->addLayout(wifiLine);

        m_phoneList->addWidget(box);
        // Shown now rather than on the next pass of the event loop, so that the height below
        // counts it.
        box->show();
        m_phoneWidgets.push_back(box);
        m_rows.push_back(row);
    }
    m_status->setText(status);
    m_status->setVisible(!status.isEmpty());
    applyLook();
    fitHeight();
    Q_EMIT phonesShown();
}

void ConnectionWindow::showReport(const ConnectionReport& report) {
    for (QLabel* label : m_checkLines) {
        label->deleteLater();
        label->hide();
    }
    m_checkLines.clear();
    for (const auto& check : report.checks) {
        auto* label =
            wrappedLabel(statusMark(check.status) + QStringLiteral("  ") + windowText(check.title) +
                             QStringLiteral(": ") + windowText(check.message),
                         m_style.fonts.system(12), this);
        m_checkList->addWidget(label);
        label->show();
        m_checkLines.push_back(label);
    }
    applyLook();
    fitHeight();
    Q_EMIT checkShown();
}

void ConnectionWindow::setBusy(bool busy) {
    m_refreshButton->setEnabled(!busy);
    m_checkButton->setEnabled(!busy);
    for (const auto& row : m_rows) {
        if (row.apply != nullptr && busy) {
            row.apply->setEnabled(false);
        }
        if (row.trustButton != nullptr) {
            row.trustButton->setEnabled(!busy);
        }
    }
}

void ConnectionWindow::applyLook() {
    const Look look = m_style.appearance.look();
    setPalette(Appearance::windowPalette(look));
    for (QLabel* label : findChildren<QLabel*>()) {
        QPalette palette = label->palette();
        palette.setColor(QPalette::WindowText,
                         Appearance::color(label->font().weight() >= QFont::DemiBold
                                               ? ColorRole::primary
                                               : ColorRole::secondary,
                                           look));
        label->setPalette(palette);
    }
    update();
}

} // namespace ambrel
