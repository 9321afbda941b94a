// Stands in for a desktop's tray on a test's own session bus: owns
// org.kde.StatusNotifierWatcher, says a tray host is there, and appends each item that
// registers to the file named by its argument, one line each ("<item> <sender>"). Creates
// "<file>.ready" once it owns the name. With TOVRIN_TEST_TRAY_HOLD set to a path it is a slow
// tray: it answers no property question until that file exists.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QFile>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>

#include <utility>

namespace {

const QString kWatcher = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString kProperties = QStringLiteral("org.freedesktop.DBus.Properties");

class Watcher final : public QDBusVirtualObject {
public:
    explicit Watcher(QString logPath) : m_logPath(std::move(logPath)) {}

    QString introspect(const QString&) const override {
        return QStringLiteral(
            "<interface name=\"org.kde.StatusNotifierWatcher\">"
            "<method name=\"RegisterStatusNotifierItem\"><arg name=\"service\" type=\"s\" "
            "direction=\"in\"/></method>"
            "<method name=\"RegisterStatusNotifierHost\"><arg name=\"service\" type=\"s\" "
            "direction=\"in\"/></method>"
            "<property name=\"RegisteredStatusNotifierItems\" type=\"as\" access=\"read\"/>"
            "<property name=\"IsStatusNotifierHostRegistered\" type=\"b\" access=\"read\"/>"
            "<property name=\"ProtocolVersion\" type=\"i\" access=\"read\"/>"
            "<signal name=\"StatusNotifierItemRegistered\"><arg type=\"s\"/></signal>"
            "</interface>");
    }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.interface() == kWatcher &&
            message.member() == QStringLiteral("RegisterStatusNotifierItem")) {
            const QString item = message.arguments().value(0).toString();
            m_items << item;
            QFile log(m_logPath);
            if (log.open(QIODevice::Append)) {
                log.write(
                    (item + QLatin1Char(' ') + message.service() + QLatin1Char('\n')).toUtf8());
            }
            connection.send(message.createReply());
            auto signal =
                QDBusMessage::createSignal(QStringLiteral("/StatusNotifierWatcher"), kWatcher,
                                           QStringLiteral("StatusNotifierItemRegistered"));
            signal << item;
            connection.send(signal);
            return true;
        }
        if (message.interface() == kWatcher &&
            message.member() == QStringLiteral("RegisterStatusNotifierHost")) {
            connection.send(message.createReply());
            return true;
        }
        if (message.interface() == kProperties && message.member() == QStringLiteral("Get") &&
            !m_holdPath.isEmpty() && !QFile::exists(m_holdPath)) {
            message.setDelayedReply(true);
            m_held.append(message);
            m_heldConnection = connection;
            return true;
        }
        if (message.interface() == kProperties && message.member() == QStringLiteral("Get")) {
            const auto value = properties().value(message.arguments().value(1).toString());
            connection.send(value.isValid()
                                ? message.createReply(QVariant::fromValue(QDBusVariant(value)))
                                : message.createErrorReply(QDBusError::InvalidArgs,
                                                           QStringLiteral("no such property")));
            return true;
        }
        if (message.interface() == kProperties && message.member() == QStringLiteral("GetAll")) {
            connection.send(message.createReply(properties()));
            return true;
        }
        return false;
    }

    // Answers the held questions once the hold is lifted.
    void answerHeld() {
        if (m_held.isEmpty() || !QFile::exists(m_holdPath)) {
            return;
        }
        const auto held = std::exchange(m_held, {});
        for (const QDBusMessage& message : held) {
            handleMessage(message, m_heldConnection);
        }
    }

    void holdUntil(QString path) { m_holdPath = std::move(path); }

private:
    QVariantMap properties() const {
        return {{QStringLiteral("RegisteredStatusNotifierItems"), m_items},
                {QStringLiteral("IsStatusNotifierHostRegistered"), true},
                {QStringLiteral("ProtocolVersion"), 0}};
    }

    QString m_logPath;
    QStringList m_items;
    QString m_holdPath;
    QList<QDBusMessage> m_held;
    QDBusConnection m_heldConnection{QString()};
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    if (argc != 2) {
        return 2;
    }
    Watcher watcher(QString::fromLocal8Bit(argv[1]));
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() ||
        !bus.registerVirtualObject(QStringLiteral("/StatusNotifierWatcher"), &watcher) ||
        !bus.registerService(kWatcher)) {
        return 1;
    }
    const QString hold = qEnvironmentVariable("TOVRIN_TEST_TRAY_HOLD");
    QTimer lift;
    if (!hold.isEmpty()) {
        watcher.holdUntil(hold);
        QObject::connect(&lift, &QTimer::timeout, [&watcher] { watcher.answerHeld(); });
        lift.start(50);
    }
    QFile ready(QString::fromLocal8Bit(argv[1]) + QStringLiteral(".ready"));
    if (!ready.open(QIODevice::WriteOnly)) {
        return 1;
    }
    ready.close();
    return QCoreApplication::exec();
}
