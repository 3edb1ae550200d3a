// A stand-in for logind on a private bus (DBUS_SYSTEM_BUS_ADDRESS): owns
// org.freedesktop.login1 and emits its session signals on command, one per
// line on standard input: "new ID", "remove ID", "lock ID", "unlock ID", and
// "sleep 1" / "sleep 0" for the start and the end of a system sleep.
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QSocketNotifier>
#include <QTextStream>

#include <cstdio>
#include <unistd.h>

namespace {
const QString kManagerPath = QStringLiteral("/org/freedesktop/login1");
const QString kManager = QStringLiteral("org.freedesktop.login1.Manager");
const QString kSession = QStringLiteral("org.freedesktop.login1.Session");

QDBusMessage Signal(const QString& command, const QString& id) {
    if (command == "sleep") {
        QDBusMessage message = QDBusMessage::createSignal(kManagerPath, kManager, "PrepareForSleep");
        message << (id == "1");
        return message;
    }
    const QString sessionPath = kManagerPath + "/session/_3" + id;
    if (command == "new" || command == "remove") {
        QDBusMessage message = QDBusMessage::createSignal(kManagerPath, kManager,
                                                          command == "new" ? "SessionNew" : "SessionRemoved");
        message << id << QVariant::fromValue(QDBusObjectPath(sessionPath));
        return message;
    }
    return QDBusMessage::createSignal(sessionPath, kSession, command == "lock" ? "Lock" : "Unlock");
}
} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected() || !bus.registerService("org.freedesktop.login1")) {
        std::fprintf(stderr, "cannot own org.freedesktop.login1\n");
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, [&bus] {
        char line[128] = {};
        const ssize_t got = ::read(STDIN_FILENO, line, sizeof(line) - 1);
        if (got <= 0) {
            QCoreApplication::quit();
            return;
        }
        for (const QString& text : QString::fromLatin1(line).split('\n', Qt::SkipEmptyParts)) {
            const QStringList words = text.split(' ');
            bus.send(Signal(words.value(0), words.value(1)));
        }
    });
    return QCoreApplication::exec();
}
