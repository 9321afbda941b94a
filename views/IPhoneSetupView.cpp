#include "views/IPhoneSetupView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "presentation/SetupSheetTexts.h"
#include "views/Appearance.h"
#include "views/RoundedBox.h"
#include "views/SetupStep.h"
#include "views/SymbolView.h"
#include "views/ViewStyle.h"

namespace ambrel {

namespace {

constexpr int kSheetPadding = 26;
constexpr int kSheetSectionSpacing = 22;
constexpr int kHeadingSpacing = 12;
constexpr int kHeadingTextSpacing = 4;
constexpr int kStepSpacing = 17;
// Extra width that keeps a button's title clear of its edges.
constexpr int kButtonPadding = 16;

QString sheetText(const char* utf8) {
    return QString::fromUtf8(utf8);
}

} // namespace

IPhoneSetupView::IPhoneSetupView(const ViewStyle& style, std::function<void()> onRefresh,
                                 std::function<void(QWidget* parent)> openConnectionWindow,
                                 QWidget* parent)
    : QDialog(parent), m_style(style), m_onRefresh(std::move(onRefresh)),
      m_openConnectionWindow(std::move(openConnectionWindow)) {
    const std::string& name = style.brandName;
    setWindowTitle(QString::fromStdString(name));
    setModal(true);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(kSheetPadding, kSheetPadding, kSheetPadding, kSheetPadding);
    layout->setSpacing(kSheetSectionSpacing);

    auto* heading = new QHBoxLayout();
    heading->setSpacing(kHeadingSpacing);
    heading->addWidget(new SymbolView(QStringLiteral("phone-vibrate"), 27, QSize(42, 32), this), 0,
                       Qt::AlignVCenter);
    auto* headingTexts = new QVBoxLayout();
    headingTexts->setSpacing(kHeadingTextSpacing);
    headingTexts->addWidget(addLabel(sheetText(SetupSheetTexts::kHeading),
                                     style.fonts.system(21, QFont::DemiBold), false));
    headingTexts->addWidget(
        addLabel(sheetText(SetupSheetTexts::kByline), style.fonts.system(12), true));
    heading->addLayout(headingTexts, 1);
    layout->addLayout(heading);

    auto* steps = new QVBoxLayout();
    steps->setSpacing(kStepSpacing);
    for (const auto& step : SetupSheetTexts::steps(name)) {
        auto* view = new SetupStep(style, step, this);
        m_steps.push_back(view);
        m_labels.push_back(view->titleLabel());
        m_labels.push_back(view->detailLabel());
        steps->addWidget(view);
    }
    layout->addLayout(steps);

    layout->addWidget(
        addLabel(sheetText(SetupSheetTexts::kFinderNote), style.fonts.system(11), true));

    auto* cadence = new RoundedBox(style.appearance, this);
    QLabel* cadenceText = addLabel(QString::fromStdString(SetupSheetTexts::cadenceNote(name)),
                                   style.fonts.system(11), true);
    cadence->layout()->addWidget(cadenceText);
    layout->addWidget(cadence);

    m_openFinder = new QPushButton(sheetText(SetupSheetTexts::kOpenFinder), this);
    m_done = new QPushButton(sheetText(SetupSheetTexts::kDone), this);
    m_checkBatteries = new QPushButton(sheetText(SetupSheetTexts::kCheckBatteries), this);
    m_openFinder->setAutoDefault(false);
    m_done->setAutoDefault(false);
    m_checkBatteries->setDefault(true);
    for (QPushButton* button : {m_openFinder, m_done, m_checkBatteries}) {
        button->setMinimumWidth(button->sizeHint().width() + kButtonPadding);
    }
    auto* buttons = new QHBoxLayout();
    buttons->addWidget(m_openFinder);
    buttons->addStretch(1);
    buttons->addWidget(m_done);
    buttons->addWidget(m_checkBatteries);
    layout->addLayout(buttons);

    connect(m_openFinder, &QPushButton::clicked, this, [this] {
        if (m_openConnectionWindow) {
            m_openConnectionWindow(this);
        }
    });
    connect(m_done, &QPushButton::clicked, this, &QDialog::accept);
    connect(m_checkBatteries, &QPushButton::clicked, this, [this] {
        if (m_onRefresh) {
            m_onRefresh();
        }
    });
    connect(&style.appearance, &Appearance::lookChanged, this, [this] { applyLook(); });

    applyLook();
    fitHeight();
}

QLabel* IPhoneSetupView::addLabel(const QString& content, const QFont& font, bool secondary) {
    auto* label = new QLabel(content, this);
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setFont(font);
    label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_labels.push_back(label);
    if (secondary) {
        m_secondaryLabels.push_back(label);
    }
    return label;
}

void IPhoneSetupView::applyLook() {
    const Look look = m_style.appearance.look();
    setPalette(Appearance::windowPalette(look));
    for (QLabel* label : m_labels) {
        const bool secondary = std::find(m_secondaryLabels.begin(), m_secondaryLabels.end(),
                                         label) != m_secondaryLabels.end();
        QPalette palette = label->palette();
        palette.setColor(
            QPalette::WindowText,
            Appearance::color(secondary ? ColorRole::secondary : ColorRole::primary, look));
        label->setPalette(palette);
    }
    for (SetupStep* step : m_steps) {
        step->applyLook();
    }
    // The default button is the filled one, in the accent colour.
    QPalette prominent = palette();
    prominent.setColor(QPalette::Button, Appearance::accent());
    prominent.setColor(QPalette::ButtonText, QColor(255, 255, 255));
    m_checkBatteries->setPalette(prominent);
    update();
}

void IPhoneSetupView::fitHeight() {
    // The width is fixed, so the height is whatever the wrapped texts need at that width.
    QLayout* content = layout();
    content->activate();
    const int height = content->hasHeightForWidth() ? content->totalHeightForWidth(kWidth)
                                                    : content->totalSizeHint().height();
    setFixedSize(kWidth, std::max(height, content->totalMinimumSize().height()));
}

} // namespace ambrel
