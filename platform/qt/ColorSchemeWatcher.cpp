#include "platform/qt/ColorSchemeWatcher.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace ambrel {

namespace {

const QString kPortalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString kPortalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString kPortalInterface = QStringLiteral("org.freedesktop.portal.Settings");
const QString kGroup = QStringLiteral("org.freedesktop.appearance");
const QString kKey = QStringLiteral("color-scheme");

// The portal answers Read with a variant inside a variant; ReadOne with one variant.
QVariant unwrapped(QVariant value) {
    for (int depth = 0; depth < 3 && value.canConvert<QDBusVariant>(); ++depth) {
        value = value.value<QDBusVariant>().variant();
    }
    if (value.canConvert<QDBusArgument>()) {
        const auto argument = value.value<QDBusArgument>();
        if (argument.currentType() == QDBusArgument::VariantType) {
            QDBusVariant inner;
            argument >> inner;
            value = inner.variant();
        }
    }
    return value;
}

} // namespace

ColorSchemeWatcher::ColorSchemeWatcher(Handler handler, QObject* parent)
    : QObject(parent), m_handler(std::move(handler)) {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return;
    }
    m_listening =
        bus.connect(kPortalService, kPortalPath, kPortalInterface, QStringLiteral("SettingChanged"),
                    this, SLOT(settingChanged(QString, QString, QDBusVariant)));
    readOnce(QStringLiteral("ReadOne"));
}

ColorSchemeWatcher::~ColorSchemeWatcher() {
    if (m_listening) {
        QDBusConnection::sessionBus().disconnect(
            kPortalService, kPortalPath, kPortalInterface, QStringLiteral("SettingChanged"), this,
            SLOT(settingChanged(QString, QString, QDBusVariant)));
    }
}

std::optional<bool> ColorSchemeWatcher::prefersDark(unsigned value) {
    switch (value) {
    case 1:
        return true;
    case 2:
        return false;
    default:
        return std::nullopt;
    }
}

void ColorSchemeWatcher::readOnce(const QString& method) {
    auto message =
        QDBusMessage::createMethodCall(kPortalService, kPortalPath, kPortalInterface, method);
    message << kGroup << kKey;
    // Asked without waiting: a portal that is slow to start must not hold up the first paint.
    auto* call =
        new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(message), this);
    connect(call, &QDBusPendingCallWatcher::finished, this,
            [this, method](QDBusPendingCallWatcher* finished) { readFinished(finished, method); });
}

void ColorSchemeWatcher::readFinished(QDBusPendingCallWatcher* call, const QString& method) {
    call->deleteLater();
    const QDBusPendingReply<QDBusVariant> reply = *call;
    if (reply.isError()) {
        // Portals older than version 2 know only the deprecated Read.
        if (method == QStringLiteral("ReadOne") &&
            reply.error().type() == QDBusError::UnknownMethod) {
            readOnce(QStringLiteral("Read"));
        }
        return;
    }
    apply(QVariant::fromValue(reply.value()));
}

void ColorSchemeWatcher::settingChanged(const QString& group, const QString& key,
                                        const QDBusVariant& value) {
    if (group == kGroup && key == kKey) {
        apply(QVariant::fromValue(value));
    }
}

void ColorSchemeWatcher::apply(const QVariant& value) {
    const QVariant plain = unwrapped(value);
    bool ok = false;
    const unsigned scheme = plain.toUInt(&ok);
    if (m_handler) {
        m_handler(ok ? prefersDark(scheme) : std::nullopt);
    }
}

} // namespace ambrel
