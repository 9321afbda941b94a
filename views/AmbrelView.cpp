#include "views/AmbrelView.h"

#include <algorithm>

#include <QAction>
#include <QHBoxLayout>
#include <QMenu>
#include <QPainter>
#include <QVBoxLayout>
#include <utility>

#include "presentation/CardTexts.h"
#include "presentation/DeviceBatteryGaugeModel.h"
#include "presentation/HistoryTexts.h"
#include "presentation/UserLocale.h"
#include "views/Appearance.h"
#include "views/ContinuousCorners.h"
#include "views/DeviceBatteryGauge.h"
#include "views/IPhoneSetupView.h"
#include "views/IconButton.h"
#include "views/MenuCheckStyle.h"
#include "views/PixelRatio.h"
#include "views/SymbolIcons.h"
#include "views/TextLine.h"
#include "views/TitleArea.h"
#include "views/ViewStyle.h"

namespace ambrel {

namespace {

constexpr int kHorizontalPadding = 16;
constexpr int kVerticalPadding = 12;
constexpr int kSectionSpacing = 8;
constexpr int kHeaderSpacing = 10;
constexpr int kGaugeSpacing = 16;
constexpr int kFooterSpacing = 5;
constexpr int kFooterHeight = 12;
constexpr qreal kGlassInset = 2;
constexpr qreal kGlassRadius = 22;

QString cardText(const char* utf8) {
    return QString::fromUtf8(utf8);
}

// A menu item's title as Qt wants it: a single "&" would mark the next letter as a shortcut.
QString menuTitle(const QString& title) {
    QString escaped = title;
    return escaped.replace(QLatin1Char('&'), QStringLiteral("&&"));
}

} // namespace

AmbrelView::AmbrelView(const ViewStyle& style, BatteryMonitor& monitor, const UserLocale& locale,
                       std::function<void()> onHide, std::function<void()> onQuit,
                       std::function<void(QWidget* parent)> openConnectionWindow, QWidget* parent)
    : QWidget(parent), m_style(style), m_monitor(monitor), m_onHide(std::move(onHide)),
      m_onQuit(std::move(onQuit)), m_openConnectionWindow(std::move(openConnectionWindow)),
      m_locale(locale), m_clock([this] { syncFromMonitor(); }) {
    const QString name = QString::fromStdString(style.brandName);
    setFixedSize(kWidth, kHeight);
    // Only the glass is drawn; around its rounded corners the desktop shows through.
    setAttribute(Qt::WA_TranslucentBackground);
    setAccessibleName(name);

    m_title = new TitleArea(style, name, this);
    m_refresh = new IconButton(style.appearance, QStringLiteral("arrow-clockwise"), 11,
                               QSize(20, 16), this);
    m_refresh->setToolTip(cardText(CardTexts::kRefreshHelp));
    m_refresh->setAccessibleName(cardText(CardTexts::kRefreshLabel));
    m_menuButton =
        new IconButton(style.appearance, QStringLiteral("three-dots"), 12, QSize(18, 16), this);
    const QString options = QString::fromStdString(CardTexts::optionsLabel(style.brandName));
    m_menuButton->setToolTip(options);
    m_menuButton->setAccessibleName(options);

    auto* header = new QHBoxLayout();
    header->setSpacing(kHeaderSpacing);
    header->addWidget(m_title, 1, Qt::AlignVCenter);
    header->addWidget(m_refresh, 0, Qt::AlignVCenter);
    header->addWidget(m_menuButton, 0, Qt::AlignVCenter);

    m_macGauge = new DeviceBatteryGauge(style, this);
    m_macGauge->setObjectName(QStringLiteral("macGauge"));
    m_phoneGauge = new DeviceBatteryGauge(style, this);
    m_phoneGauge->setObjectName(QStringLiteral("phoneGauge"));
    auto* gauges = new QHBoxLayout();
    gauges->setSpacing(kGaugeSpacing);
    gauges->addWidget(m_macGauge, 1, Qt::AlignTop);
    gauges->addWidget(m_phoneGauge, 1, Qt::AlignTop);

    m_cadence = new TextLine(style.appearance, style.fonts.system(9, QFont::Medium),
                             ColorRole::secondary, TextLine::Fit::elideEnd, Qt::AlignLeft, this);
    m_cadence->setLineHeight(kFooterHeight);
    m_cadence->setText(cardText(CardTexts::kCadence));
    m_cadence->setToolTip(cardText(CardTexts::kCadenceHelp));
    m_help = new IconButton(style.appearance, QStringLiteral("question-circle"), 10,
                            QSize(18, kFooterHeight), this);
    m_help->setAccessibleName(cardText(CardTexts::kHelpButtonLabel));
    auto* footer = new QHBoxLayout();
    footer->setSpacing(kFooterSpacing);
    footer->addWidget(m_cadence, 0, Qt::AlignVCenter);
    footer->addStretch(1);
    footer->addWidget(m_help, 0, Qt::AlignVCenter);

    auto* card = new QVBoxLayout(this);
    card->setContentsMargins(kHorizontalPadding, kVerticalPadding, kHorizontalPadding,
                             kVerticalPadding);
    card->setSpacing(kSectionSpacing);
    card->addLayout(header);
    card->addLayout(gauges, 1);
    card->addLayout(footer);

    buildMenu();

    connect(m_refresh, &QAbstractButton::clicked, this, [this] { m_monitor.refreshAll(); });
    connect(m_menuButton, &QAbstractButton::pressed, this, [this] {
        m_menu->popup(m_menuButton->mapToGlobal(QPoint(0, m_menuButton->height())));
    });
    connect(m_help, &QAbstractButton::clicked, this, [this] { showSetup(); });
    connect(&style.appearance, &Appearance::lookChanged, this, [this] { applyLook(); });

    m_observer = m_monitor.addObserver([this](MonitorProperty, ChangePhase phase) {
        if (phase == ChangePhase::didChange) {
            syncFromMonitor();
            // Just brought up to date: the clock's next tick is due 30 s from now. Every
            // other tick would otherwise come a moment after the minute's computer reading
            // and wake the program a second time for nothing.
            if (m_clock.isActive()) {
                m_clock.start(kClockInterval, TimerRepeat::repeating);
            }
        }
    });
    applyLook();
    syncFromMonitor();
}

AmbrelView::~AmbrelView() {
    m_monitor.removeObserver(m_observer);
}

void AmbrelView::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    updateClock();
}

void AmbrelView::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    updateClock();
}

void AmbrelView::setScreenLocked(bool locked) {
    m_screenLocked = locked;
    updateClock();
}

void AmbrelView::updateClock() {
    // The clock only keeps the time stamps (today or another day) current; it reads nothing. A
    // card nobody can see has no time stamps to keep.
    const bool seen = isVisible() && !m_screenLocked;
    if (seen && !m_clock.isActive()) {
        syncFromMonitor();
        m_clock.start(kClockInterval, TimerRepeat::repeating);
    } else if (!seen) {
        m_clock.stop();
    }
}

void AmbrelView::buildMenu() {
    m_menu = new QMenu(this);
    m_menu->setObjectName(QStringLiteral("optionsMenu"));
    auto* style = new MenuCheckStyle;
    style->setParent(m_menu);
    m_menu->setStyle(style);
    const std::string& name = m_style.brandName;

    QAction* refresh = m_menu->addAction(menuTitle(cardText(CardTexts::kMenuRefresh)));
    refresh->setObjectName(QStringLiteral("refreshAction"));
    refresh->setData(QStringLiteral("arrow-clockwise"));
    connect(refresh, &QAction::triggered, this, [this] { m_monitor.refreshAll(); });
    QAction* setup = m_menu->addAction(menuTitle(cardText(CardTexts::kMenuSetup)));
    setup->setObjectName(QStringLiteral("setupAction"));
    setup->setData(QStringLiteral("phone"));
    connect(setup, &QAction::triggered, this, [this] { showSetup(); });
    m_menu->addSeparator();
    QAction* byline = m_menu->addAction(menuTitle(cardText(CardTexts::kMenuByline)));
    byline->setEnabled(false);
    m_menu->addSeparator();
    QAction* hide = m_menu->addAction(menuTitle(cardText(CardTexts::kMenuHide)));
    hide->setObjectName(QStringLiteral("hideAction"));
    hide->setData(QStringLiteral("eye-slash"));
    connect(hide, &QAction::triggered, this, [this] {
        if (m_onHide) {
            m_onHide();
        }
    });
    QAction* quit =
        m_menu->addAction(menuTitle(QString::fromStdString(CardTexts::quitTitle(name))));
    quit->setObjectName(QStringLiteral("quitAction"));
    connect(quit, &QAction::triggered, this, [this] {
        if (m_onQuit) {
            m_onQuit();
        }
    });
    // The icons are drawn from their outlines when the menu is first opened, not while the
    // card is being put on screen.
    connect(m_menu, &QMenu::aboutToShow, this, [this] { drawMenuIcons(); });
}

void AmbrelView::setOpenHistory(std::function<void()> open) {
    auto* setup = m_menu->findChild<QAction*>(QStringLiteral("setupAction"));
    const auto actions = m_menu->actions();
    const auto at = std::find(actions.begin(), actions.end(), setup);
    QAction* before = at != actions.end() && at + 1 != actions.end() ? *(at + 1) : nullptr;
    auto* history = new QAction(QString::fromUtf8(HistoryTexts::kMenuItem), m_menu);
    history->setObjectName(QStringLiteral("historyAction"));
    history->setData(QStringLiteral("graph-up"));
    connect(history, &QAction::triggered, this, [open = std::move(open)] {
        if (open) {
            open();
        }
    });
    m_menu->insertAction(before, history);
    m_menuIconsLook.reset();
}

void AmbrelView::drawMenuIcons() {
    const Look look = m_style.appearance.look();
    if (m_menuIconsLook == look) {
        return;
    }
    m_menuIconsLook = look;
    const QColor iconColor = Appearance::windowPalette(look).color(QPalette::WindowText);
    for (QAction* action : m_menu->actions()) {
        const QString symbol = action->data().toString();
        if (!symbol.isEmpty()) {
            action->setIcon(SymbolIcons::menuIcon(symbol, iconColor));
        }
    }
}

void AmbrelView::applyLook() {
    const Look look = m_style.appearance.look();
    const QPalette palette = Appearance::windowPalette(look);
    m_menu->setPalette(palette);
    if (m_menu->isVisible()) {
        drawMenuIcons();
    }
    update();
}

void AmbrelView::showSetup() {
    if (m_setup) {
        m_setup->raise();
        m_setup->activateWindow();
        return;
    }
    auto* sheet = new IPhoneSetupView(
        m_style, [this] { m_monitor.refreshAll(); }, m_openConnectionWindow, this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowModality(Qt::WindowModal);
    m_setup = sheet;
    connect(sheet, &QDialog::finished, this, [this] { m_setup = nullptr; });
    sheet->open();
}

void AmbrelView::syncFromMonitor() {
    const Date now = m_monitor.clock().now();
    const PhoneSetupState state = m_monitor.phoneSetupState();
    const bool phoneFailed = state == PhoneSetupState::needsPairing ||
                             state == PhoneSetupState::notFound ||
                             state == PhoneSetupState::unavailable;
    m_macGauge->setModel(DeviceBatteryGaugeModel(m_monitor.mac(), BatteryDeviceKind::mac, false,
                                                 false, now, m_locale));
    m_phoneGauge->setModel(DeviceBatteryGaugeModel(m_monitor.phone(), BatteryDeviceKind::phone,
                                                   m_monitor.isRefreshingPhone(), phoneFailed, now,
                                                   m_locale));
    m_refresh->setBusy(m_monitor.isRefreshingPhone());
    m_help->setToolTip(QString::fromStdString(m_monitor.phoneStatus()));
}

void AmbrelView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    m_glass = QImage();
}

void AmbrelView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const double ratio = pixelRatio(painter);
    const Look look = m_style.appearance.look();
    if (m_glass.isNull() || m_glassRatio != ratio || m_glassLook != look) {
        m_glass = QImage((QSizeF(size()) * ratio).toSize(), QImage::Format_ARGB32_Premultiplied);
        m_glass.setDevicePixelRatio(ratio);
        m_glass.fill(Qt::transparent);
        QPainter glass(&m_glass);
        glass.setRenderHint(QPainter::Antialiasing);
        glass.setPen(QPen(Appearance::glassEdge(look), 1));
        glass.setBrush(Appearance::glassFill(look));
        glass.drawPath(continuousRoundedRect(
            QRectF(rect()).adjusted(kGlassInset, kGlassInset, -kGlassInset, -kGlassInset),
            kGlassRadius));
        m_glassRatio = ratio;
        m_glassLook = look;
    }
    painter.drawImage(QPointF(0, 0), m_glass);
}

} // namespace ambrel
