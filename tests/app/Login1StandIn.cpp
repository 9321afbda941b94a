// Stands in for logind on a test's own system bus: owns org.freedesktop.login1 and, each time
// the file named by its argument appears, removes it and announces a sleep and a wake
// (PrepareForSleep true, then false). Writes "<file>.ready" once it owns the name.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QFile>
#include <QTimer>

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    if (argc != 2) {
        return 2;
    }
    const QString trigger = QString::fromLocal8Bit(argv[1]);
    auto bus = QDBusConnection::systemBus();
    if (!bus.isConnected() || !bus.registerService(QStringLiteral("org.freedesktop.login1"))) {
        return 1;
    }
    QFile ready(trigger + QStringLiteral(".ready"));
    if (!ready.open(QIODevice::WriteOnly)) {
        return 1;
    }
    ready.close();

    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&bus, &trigger] {
        if (!QFile::exists(trigger)) {
            return;
        }
        QFile::remove(trigger);
        for (const bool goingToSleep : {true, false}) {
            auto signal =
                QDBusMessage::createSignal(QStringLiteral("/org/freedesktop/login1"),
                                           QStringLiteral("org.freedesktop.login1.Manager"),
                                           QStringLiteral("PrepareForSleep"));
            signal << goingToSleep;
            bus.send(signal);
        }
    });
    poll.start(20);
    return QCoreApplication::exec();
}
