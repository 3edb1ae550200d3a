#pragma once

#include <QObject>

#include <functional>

class QSocketNotifier;

// Turns SIGTERM and SIGINT into a call on the application thread. The signal
// handler only writes one byte to a pipe; everything else runs from the event
// loop.
class SignalBridge : public QObject {
    Q_OBJECT
public:
    explicit SignalBridge(std::function<void(int)> onSignal, QObject* parent = nullptr);
    ~SignalBridge() override;

private:
    void onReadable();
    static void Handler(int signal);

    std::function<void(int)> m_onSignal;
    QSocketNotifier* m_notifier = nullptr;
};
