#include "views/ConnectionWindow.h"

#include <algorithm>
#include <memory>
#include <set>
#include <utility>

#include <QClipboard>
#include <QCoreApplication>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

#include "phone/ProductNames.h"
#include "presentation/ConnectionPath.h"
#include "views/ActivitySpinner.h"
#include "views/Appearance.h"
#include "views/ContinuousCorners.h"
#include "views/RoundedBox.h"
#include "views/SymbolMark.h"
#include "views/ToggleSwitch.h"
#include "views/ViewStyle.h"

namespace ambrel {

namespace {

// The glass panel sits this far inside the window, with the card's corner radius; the content
// is padded inside it.
constexpr int kWindowGlassMargin = 8;
constexpr qreal kWindowGlassRadius = 22;
constexpr int kWindowContentPadding = 22;
constexpr int kWindowSectionSpacing = 16;
constexpr int kWindowStepSymbol = 16;

QString windowText(const std::string& utf8) {
    return QString::fromStdString(utf8);
}

QLabel* wrappedLabel(const QString& content, const QFont& font, QWidget* parent) {
    auto* label = new QLabel(content, parent);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setFont(font);
    return label;
}

// Drawn in the secondary colour, in either look.
const char* const kSecondary = "secondaryText";

QLabel* secondary(QLabel* label) {
    label->setProperty(kSecondary, true);
    return label;
}

// A step's symbol and colour: done in green, waiting in the secondary colour, failed in red,
// or orange when the phone can be read by the other link all the same.
std::pair<QString, ColorRole> stepSymbol(CheckStatus status, bool readable) {
    switch (status) {
    case CheckStatus::passed:
        return {QStringLiteral("check-circle-fill"), ColorRole::green};
    case CheckStatus::failed:
        return readable ? std::pair(QStringLiteral("exclamation-circle-fill"), ColorRole::orange)
                        : std::pair(QStringLiteral("x-circle-fill"), ColorRole::red);
    case CheckStatus::skipped:
        break;
    }
    return {QStringLiteral("circle"), ColorRole::secondary};
}

QString statusWord(CheckStatus status) {
    switch (status) {
    case CheckStatus::passed:
        return QStringLiteral("Done");
    case CheckStatus::failed:
        return QStringLiteral("Needs you");
    case CheckStatus::skipped:
        break;
    }
    return QStringLiteral("Waiting");
}

} // namespace

ConnectionWindow::ConnectionWindow(const ViewStyle& style, SystemConnectionProbe::Setup setup,
                                   Background background, QWidget* parent)
    : QDialog(parent), m_style(style), m_setup(std::move(setup)),
      m_background(std::move(background)), m_helper(m_setup.toolDirectory, m_setup.launcher) {
    setWindowTitle(QStringLiteral("iPhone Connection \u00b7 ") + windowText(style.brandName));

    auto* layout = new QVBoxLayout(this);
    const int inset = kWindowGlassMargin + kWindowContentPadding;
    layout->setContentsMargins(inset, inset, inset, inset);
    layout->setSpacing(kWindowSectionSpacing);

    // Heading: the phone symbol in the accent colour, as on the setup sheet.
    auto* heading = new QHBoxLayout();
    heading->setSpacing(10);
    auto* headingMark = new SymbolMark(m_style.appearance, QStringLiteral("phone-vibrate"),
                                       ColorRole::primary, 22, this);
    heading->addWidget(headingMark, 0, Qt::AlignVCenter);
    heading->addWidget(wrappedLabel(QStringLiteral("Your iPhone"),
                                    m_style.fonts.system(17, QFont::DemiBold), this),
                       1);
    layout->addLayout(heading);

    m_phoneList = new QVBoxLayout();
    m_phoneList->setSpacing(12);
    layout->addLayout(m_phoneList);
    m_status = wrappedLabel(QString(), m_style.fonts.system(12), this);
    secondary(m_status);
    layout->addWidget(m_status);

    auto* checkHeading = new QHBoxLayout();
    checkHeading->setSpacing(8);
    checkHeading->addWidget(wrappedLabel(QStringLiteral("Connection check"),
                                         m_style.fonts.system(14, QFont::DemiBold), this));
    m_checkSpinner = new ActivitySpinner(m_style.appearance, this);
    m_checkSpinner->setVisible(false);
    checkHeading->addWidget(m_checkSpinner, 0, Qt::AlignVCenter);
    checkHeading->addStretch(1);
    layout->addLayout(checkHeading);
    m_summary = wrappedLabel(QString(), m_style.fonts.system(12), this);
    m_summary->setVisible(false);
    secondary(m_summary);
    layout->addWidget(m_summary);
    m_pathList = new QVBoxLayout();
    m_pathList->setSpacing(7);
    layout->addLayout(m_pathList);

    auto* buttons = new QHBoxLayout();
    m_refreshButton = new QPushButton(QStringLiteral("Refresh"), this);
    m_checkButton = new QPushButton(QStringLiteral("Check Again"), this);
    m_refreshButton->setAutoDefault(false);
    m_checkButton->setAutoDefault(false);
    m_checkButton->setDefault(true);
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

void ConnectionWindow::paintEvent(QPaintEvent*) {
    // The card's glass and hairline edge, over the window's own colour.
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const Look look = m_style.appearance.look();
    painter.fillRect(rect(), Appearance::windowPalette(look).color(QPalette::Window));
    painter.setPen(QPen(Appearance::glassEdge(look), 1));
    painter.setBrush(Appearance::glassFill(look));
    painter.drawPath(
        continuousRoundedRect(QRectF(rect()).adjusted(kWindowGlassMargin, kWindowGlassMargin,
                                                      -kWindowGlassMargin, -kWindowGlassMargin),
                              kWindowGlassRadius));
}

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
                                              ConnectionWindow::Background background,
                                              std::function<std::string()> cardPhone) {
    auto opened = std::make_shared<QPointer<ConnectionWindow>>();
    return [&style, setup = std::move(setup), background = std::move(background),
            cardPhone = std::move(cardPhone), opened](QWidget* parent) {
        const bool fresh = opened->isNull();
        if (fresh) {
            *opened = new ConnectionWindow(style, setup, background, parent);
            (*opened)->setAttribute(Qt::WA_DeleteOnClose);
        }
        ConnectionWindow* window = *opened;
        if (cardPhone) {
            window->setCardPhone(cardPhone());
        }
        window->show();
        window->raise();
        window->activateWindow();
        window->refresh();
        if (fresh) {
            window->runCheck();
        }
    };
}

template <typename Result>
void ConnectionWindow::inBackground(std::function<Result()> work, std::function<void(Result)> done,
                                    bool exchange) {
    if (exchange) {
        ++m_pending;
        setBusy(true);
    }
    QPointer<ConnectionWindow> self(this);
    // The job holds the scheduler weakly: a result that comes back after the program has begun
    // to end goes nowhere. On the main thread it looks for the window, which may be gone.
    std::weak_ptr<MainScheduler> weakScheduler = m_background.scheduler;
    m_background.worker->run(
        [self, weakScheduler, work = std::move(work), done = std::move(done), exchange] {
            auto result = std::make_shared<Result>(work());
            if (auto scheduler = weakScheduler.lock()) {
                scheduler->post([self, done, result, exchange] {
                    if (self.isNull()) {
                        return;
                    }
                    if (exchange) {
                        --self->m_pending;
                        self->setBusy(self->m_pending > 0);
                    }
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
                          [this](Listing listing) { showListing(std::move(listing), QString()); });
}

void ConnectionWindow::trust(const std::string& udid) {
    m_status->setText(QString::fromUtf8("Unlock your iPhone and tap Trust when it asks\u2026"));
    m_status->setVisible(true);
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
            showListing(std::move(outcome.listing),
                        outcome.paired ? QStringLiteral("This computer is now trusted.")
                                       : QStringLiteral("Unlock your iPhone, click Pair again "
                                                        "and tap Trust on the iPhone."));
            if (outcome.paired) {
                runCheck();
            }
        });
}

void ConnectionWindow::apply(const std::string& udid, bool showOnWifi) {
    for (const auto& row : m_rows) {
        if (row.udid == udid) {
            // Applied at once: the switch waits, with a spinner, for the phone's answer.
            row.showOnWifi->setEnabled(false);
            row.wifiNote->setVisible(false);
            row.wifiSpinner->setVisible(true);
            row.wifiSpinner->start();
        }
    }
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
        [this, udid](Outcome outcome) {
            QString note;
            if (outcome.error) {
                note = windowText(
                    ConnectionCheck::adviceFor(*outcome.error, CheckPlace::connectionWindow));
            } else {
                note = *outcome.enabled ? QStringLiteral("Wi-Fi connections are now on.")
                                        : QStringLiteral("Wi-Fi connections are now off.");
            }
            showListing(std::move(outcome.listing), QString());
            for (const auto& row : m_rows) {
                if (row.udid == udid) {
                    row.wifiNote->setText(note);
                    row.wifiNote->setVisible(true);
                }
            }
            fitHeight();
            if (outcome.enabled) {
                runCheck();
            }
        });
}

void ConnectionWindow::runCheck() {
    if (m_checking) {
        return;
    }
    m_checking = true;
    m_checkSpinner->setVisible(true);
    m_checkSpinner->start();
    const SystemConnectionProbe::Setup setup = m_setup;
    inBackground<ConnectionReport>(
        [setup] {
            SystemConnectionProbe probe(setup);
            return ConnectionCheck::run(probe, CheckPlace::connectionWindow);
        },
        [this](ConnectionReport report) {
            m_checking = false;
            m_checkSpinner->stop();
            m_checkSpinner->setVisible(false);
            setBusy(m_pending > 0);
            showReport(report);
        },
        false);
}

std::string ConnectionWindow::phoneOnCable() const {
    const auto found =
        std::find_if(m_rows.begin(), m_rows.end(), [](const PhoneRow& row) { return row.onUsb; });
    return found == m_rows.end() ? std::string() : found->udid;
}

void ConnectionWindow::clearRows() {
    for (QWidget* widget : m_phoneWidgets) {
        widget->deleteLater();
        widget->hide();
    }
    m_phoneWidgets.clear();
    m_rows.clear();
}

void ConnectionWindow::showListing(Listing listing, const QString& note) {
    clearRows();
    QString status = note;
    if (listing.error) {
        status =
            windowText(ConnectionCheck::adviceFor(*listing.error, CheckPlace::connectionWindow));
    } else if (listing.phones.empty() && status.isEmpty()) {
        status = QStringLiteral("No iPhone found. Connect yours with a USB cable and unlock it.");
    }
    // The card's phone first, then those on the cable, then by name.
    std::stable_sort(listing.phones.begin(), listing.phones.end(),
                     [this](const PhoneEntry& a, const PhoneEntry& b) {
                         const auto rank = [this](const PhoneEntry& entry) {
                             return std::pair(entry.udid != m_cardPhone, !entry.onUsb);
                         };
                         return rank(a) < rank(b);
                     });
    for (const auto& entry : listing.phones) {
        addPhoneRow(entry);
    }
    m_status->setText(status);
    m_status->setVisible(!status.isEmpty());
    setBusy(m_pending > 0);
    applyLook();
    fitHeight();
    Q_EMIT phonesShown();
}

void ConnectionWindow::addPhoneRow(const PhoneEntry& entry) {
    const Appearance& appearance = m_style.appearance;
    auto* box = new QWidget(this);
    auto* columns = new QHBoxLayout(box);
    columns->setContentsMargins(0, 0, 0, 0);
    columns->setSpacing(12);
    columns->addWidget(
        new SymbolMark(appearance, QStringLiteral("phone"), ColorRole::secondary, 24, box), 0,
        Qt::AlignTop);
    auto* rows = new QVBoxLayout();
    rows->setSpacing(5);
    columns->addLayout(rows, 1);

    PhoneRow row;
    row.udid = entry.udid;
    row.onUsb = entry.onUsb;
    const PhoneDetails* details = entry.details ? &*entry.details : nullptr;
    const QString name =
        details && !details->name.empty() ? windowText(details->name) : QStringLiteral("iPhone");
    row.name = wrappedLabel(name, m_style.fonts.system(14, QFont::DemiBold), box);
    row.detail =
        wrappedLabel(windowText(ConnectionPath::phoneLine(
                         details ? ProductNames::marketingName(details->model) : std::string(),
                         details ? details->osVersion : std::string(), entry.onUsb, entry.onWifi)),
                     m_style.fonts.system(12), box);
    secondary(row.detail);
    rows->addWidget(row.name);
    rows->addWidget(row.detail);

    auto* trustLine = new QHBoxLayout();
    trustLine->setSpacing(6);
    QString trustText;
    QString symbol = QStringLiteral("check-circle-fill");
    ColorRole role = ColorRole::green;
    if (entry.error) {
        trustText =
            windowText(ConnectionCheck::adviceFor(*entry.error, CheckPlace::connectionWindow));
        symbol = QStringLiteral("x-circle-fill");
        role = ColorRole::red;
    } else if (details->trusted) {
        trustText = QStringLiteral("Trusts this computer");
    } else if (details->trustError == "PasswordProtected") {
        // Pairing cannot help a locked phone; unlocking it does.
        trustText = QStringLiteral("Locked: unlock it, then check again");
        symbol = QStringLiteral("exclamation-circle-fill");
        role = ColorRole::orange;
    } else {
        trustText = QString::fromUtf8("Doesn\u2019t trust this computer yet");
        symbol = QStringLiteral("exclamation-circle-fill");
        role = ColorRole::orange;
    }
    row.trustMark = new SymbolMark(appearance, symbol, role, 14, box);
    row.trust = wrappedLabel(trustText, m_style.fonts.system(12), box);
    trustLine->addWidget(row.trustMark, 0, Qt::AlignVCenter);
    trustLine->addWidget(row.trust, 1);
    if (details && !details->trusted && details->trustError != "PasswordProtected" && entry.onUsb) {
        row.pairButton = new QPushButton(QStringLiteral("Pair"), box);
        row.pairButton->setAutoDefault(false);
        const std::string udid = entry.udid;
        connect(row.pairButton, &QPushButton::clicked, this, [this, udid] { trust(udid); });
        trustLine->addWidget(row.pairButton);
    }
    rows->addLayout(trustLine);

    auto* wifiLine = new QHBoxLayout();
    wifiLine->setSpacing(8);
    const QString wifiTitle = QString::fromUtf8("Show this iPhone when on Wi-Fi");
    wifiLine->addWidget(wrappedLabel(wifiTitle, m_style.fonts.system(12), box), 1);
    row.wifiSpinner = new ActivitySpinner(appearance, box);
    row.wifiSpinner->setVisible(false);
    wifiLine->addWidget(row.wifiSpinner, 0, Qt::AlignVCenter);
    row.showOnWifi = new ToggleSwitch(appearance, box);
    row.showOnWifi->setAccessibleName(wifiTitle);
    row.showOnWifi->setChecked(details && details->wifiConnections.value_or(false));
    // The setting is changed over the cable, by a computer the phone trusts.
    const bool changeable = details && details->trusted && entry.onUsb;
    row.showOnWifi->setEnabled(changeable);
    if (!changeable) {
        row.showOnWifi->setToolTip(
            QStringLiteral("Change this while the iPhone is on the cable and trusts this "
                           "computer."));
    }
    const std::string udid = entry.udid;
    connect(row.showOnWifi, &QAbstractButton::clicked, this,
            [this, udid](bool checked) { apply(udid, checked); });
    wifiLine->addWidget(row.showOnWifi, 0, Qt::AlignVCenter);
    rows->addLayout(wifiLine);
    row.wifiNote = wrappedLabel(QString(), m_style.fonts.system(12), box);
    row.wifiNote->setVisible(false);
    secondary(row.wifiNote);
    rows->addWidget(row.wifiNote);

    m_phoneList->addWidget(box);
    // Shown now rather than on the next pass of the event loop, so that the height counts it.
    box->show();
    m_phoneWidgets.push_back(box);
    m_rows.push_back(row);
}

void ConnectionWindow::clearPath() {
    for (QWidget* widget : m_pathWidgets) {
        widget->deleteLater();
        widget->hide();
    }
    m_pathWidgets.clear();
    m_stepLines.clear();
    m_problemBox = nullptr;
    m_problemWrong = nullptr;
    m_problemToDo = nullptr;
    m_command = nullptr;
    m_copyButton = nullptr;
    m_actionButton = nullptr;
    m_folded = nullptr;
    m_checkButton->setDefault(true);
}

void ConnectionWindow::showReport(const ConnectionReport& report) {
    clearPath();
    const Appearance& appearance = m_style.appearance;
    const ConnectionPath path = ConnectionPath::of(report);
    m_summary->setText(windowText(path.summary));
    m_summary->setVisible(true);

    for (const auto& step : path.steps) {
        auto* line = new QWidget(this);
        auto* columns = new QHBoxLayout(line);
        columns->setContentsMargins(0, 0, 0, 0);
        columns->setSpacing(9);
        const auto [symbol, role] = stepSymbol(step.status, report.readable());
        StepLine shown;
        shown.name = step.name;
        shown.mark = new SymbolMark(appearance, symbol, role, kWindowStepSymbol, line);
        shown.title = wrappedLabel(windowText(step.title), m_style.fonts.system(12), line);
        columns->addWidget(shown.mark, 0, Qt::AlignVCenter);
        columns->addWidget(shown.title, 1);
        line->setAccessibleName(statusWord(step.status) + QStringLiteral(": ") +
                                windowText(step.title));
        m_pathList->addWidget(line);
        line->show();
        m_pathWidgets.push_back(line);
        m_stepLines.push_back(shown);
    }

    if (path.problem) {
        const PathProblem& problem = *path.problem;
        m_problemBox = new RoundedBox(appearance, this);
        auto* box = static_cast<QVBoxLayout*>(m_problemBox->layout());
        box->setSpacing(6);
        m_problemWrong = wrappedLabel(windowText(problem.whatIsWrong),
                                      m_style.fonts.system(12, QFont::DemiBold), m_problemBox);
        m_problemToDo =
            wrappedLabel(windowText(problem.whatToDo), m_style.fonts.system(12), m_problemBox);
        secondary(m_problemToDo);
        box->addWidget(m_problemWrong);
        box->addWidget(m_problemToDo);
        if (!problem.command.empty()) {
            auto* commandLine = new QHBoxLayout();
            m_command = new QLineEdit(windowText(problem.command), m_problemBox);
            m_command->setReadOnly(true);
            // The desktop's fixed-width font.
            QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
            mono.setPixelSize(12);
            m_command->setFont(mono);
            m_command->setAccessibleName(QStringLiteral("Command to run"));
            m_copyButton = new QPushButton(QStringLiteral("Copy"), m_problemBox);
            m_copyButton->setAutoDefault(false);
            QLineEdit* field = m_command;
            QPushButton* copy = m_copyButton;
            connect(m_copyButton, &QPushButton::clicked, this, [field, copy] {
                QGuiApplication::clipboard()->setText(field->text());
                copy->setText(QStringLiteral("Copied"));
            });
            commandLine->addWidget(m_command, 1);
            commandLine->addWidget(m_copyButton);
            box->addLayout(commandLine);
        }
        if (problem.action != PathAction::checkAgain) {
            // What the window can do itself is the window's primary action.
            m_actionButton = new QPushButton(windowText(problem.actionTitle), m_problemBox);
            m_actionButton->setAutoDefault(false);
            m_actionButton->setDefault(true);
            const PathAction action = problem.action;
            connect(m_actionButton, &QPushButton::clicked, this, [this, action] {
                const std::string udid = phoneOnCable();
                if (udid.empty()) {
                    refresh();
                } else if (action == PathAction::pair) {
                    trust(udid);
                } else {
                    apply(udid, true);
                }
            });
            auto* actionLine = new QHBoxLayout();
            actionLine->addStretch(1);
            actionLine->addWidget(m_actionButton);
            box->addLayout(actionLine);
        }
        m_problemBox->setAccessibleName(windowText(problem.whatIsWrong + " " + problem.whatToDo));
        m_pathList->addWidget(m_problemBox);
        m_problemBox->show();
        m_pathWidgets.push_back(m_problemBox);
    }

    if (path.folded > 0) {
        auto* line = new QWidget(this);
        auto* columns = new QHBoxLayout(line);
        columns->setContentsMargins(0, 0, 0, 0);
        columns->setSpacing(9);
        columns->addWidget(new SymbolMark(appearance, QStringLiteral("three-dots"),
                                          ColorRole::secondary, kWindowStepSymbol, line),
                           0, Qt::AlignVCenter);
        m_folded = wrappedLabel(windowText(path.foldedLine), m_style.fonts.system(12), line);
        secondary(m_folded);
        columns->addWidget(m_folded, 1);
        m_pathList->addWidget(line);
        line->show();
        m_pathWidgets.push_back(line);
    }
    setBusy(m_pending > 0);
    applyLook();
    fitHeight();
    Q_EMIT checkShown();
}

void ConnectionWindow::setBusy(bool busy) {
    m_refreshButton->setEnabled(!busy);
    m_checkButton->setEnabled(!busy && !m_checking);
    if (m_actionButton != nullptr) {
        m_actionButton->setEnabled(!busy);
    }
    for (const auto& row : m_rows) {
        if (row.pairButton != nullptr) {
            row.pairButton->setEnabled(!busy);
        }
    }
}

void ConnectionWindow::applyLook() {
    const Look look = m_style.appearance.look();
    setPalette(Appearance::windowPalette(look));
    for (QLabel* label : findChildren<QLabel*>()) {
        const bool faint = label->property(kSecondary).toBool();
        QPalette palette = label->palette();
        palette.setColor(
            QPalette::WindowText,
            Appearance::color(faint ? ColorRole::secondary : ColorRole::primary, look));
        label->setPalette(palette);
    }
    update();
}

} // namespace ambrel
