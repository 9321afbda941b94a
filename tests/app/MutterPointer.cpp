// Moves and presses mutter's own pointer, as a person's mouse would, through mutter's remote
// desktop service on the session bus it runs on (DBUS_SESSION_BUS_ADDRESS). Under mutter the X
// server is Xwayland, whose XTest events never reach the compositor: a click made with xdotool
// neither focuses a window nor lets mutter carry out a window move. Input made here goes through
// mutter first, like a real mouse.
//
// Reads steps from the file named by its argument (a pipe the test writes to), one a line:
//   to X Y      puts the pointer at X, Y on the screen
//   down / up   presses / releases the left button
// and answers each on standard output with "ok", or "refused: " and mutter's reason. The button
// stays pressed between steps until "up", as the pointer's session lives as long as this program.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

namespace {

const QString kService = QStringLiteral("org.gnome.Mutter.RemoteDesktop");
const QString kSessionInterface = QStringLiteral("org.gnome.Mutter.RemoteDesktop.Session");
// The left button's code in the kernel's input codes (BTN_LEFT).
constexpr int kLeftButton = 0x110;

class Pointer {
public:
    explicit Pointer(QDBusConnection bus) : m_bus(std::move(bus)) {}

    bool open() {
        const auto created = m_bus.call(QDBusMessage::createMethodCall(
            kService, QStringLiteral("/org/gnome/Mutter/RemoteDesktop"), kService,
            QStringLiteral("CreateSession")));
        if (created.type() != QDBusMessage::ReplyMessage || created.arguments().isEmpty()) {
            return failed(created);
        }
        m_session = created.arguments().constFirst().value<QDBusObjectPath>().path();
        // The session has no screen stream to place the pointer by, only moves by so much: the
        // pointer starts in the top-left corner (the screen's edges stop it there), and every
        // later place is reached from the one before.
        return call(QStringLiteral("Start"), {}) && moveBy(-100000, -100000);
    }

    void close() {
        if (!m_session.isEmpty()) {
            call(QStringLiteral("Stop"), {});
        }
    }

    bool moveTo(double x, double y) {
        if (!moveBy(x - m_x, y - m_y)) {
            return false;
        }
        m_x = x;
        m_y = y;
        return true;
    }

    bool button(bool pressed) {
        return call(QStringLiteral("NotifyPointerButton"), {kLeftButton, pressed});
    }

private:
    bool moveBy(double dx, double dy) {
        return call(QStringLiteral("NotifyPointerMotionRelative"), {dx, dy});
    }

    bool call(const QString& method, const QVariantList& arguments) {
        auto message =
            QDBusMessage::createMethodCall(kService, m_session, kSessionInterface, method);
        message.setArguments(arguments);
        const auto reply = m_bus.call(message);
        return reply.type() == QDBusMessage::ReplyMessage || failed(reply);
    }

public:
    // Answers a step that was not taken, with why.
    static bool refuse(const QString& why) {
        std::printf("refused: %s\n", qPrintable(why));
        return false;
    }

private:
    static bool failed(const QDBusMessage& reply) { return refuse(reply.errorMessage()); }

    QDBusConnection m_bus;
    QString m_session;
    double m_x = 0;
    double m_y = 0;
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s STEPS-PIPE\n", argv[0]);
        return 2;
    }
    std::ifstream steps(argv[1]);
    Pointer pointer(QDBusConnection::sessionBus());
    if (!steps || !pointer.open()) {
        return 1;
    }
    std::string line;
    while (std::getline(steps, line)) {
        std::istringstream words(line);
        std::string step;
        double x = 0;
        double y = 0;
        words >> step >> x >> y;
        bool ok = false;
        if (step == "to") {
            ok = pointer.moveTo(x, y);
        } else if (step == "down" || step == "up") {
            ok = pointer.button(step == "down");
        } else {
            Pointer::refuse(QStringLiteral("no such step: ") + QString::fromStdString(step));
        }
        if (ok) {
            std::printf("ok\n");
        }
        std::fflush(stdout);
    }
    pointer.close();
    return 0;
}
