#pragma once

#include "framework/CommunServer.h"

#include <QObject>
#include <QThread>

#include <atomic>
#include <chrono>
#include <vector>

// A stand-in agent on its own thread: acknowledges every command with result
// 0, as the suite's agent does, and counts the plans it has received a
// trigger-info command (601) for.
class CountingAgent : public QObject {
    Q_OBJECT
public:
    using Steady = std::chrono::steady_clock;

    // Listens on the descriptor of a reserved port; `plans` bounds the plan
    // indexes (ScalePlans::IndexOf) it counts.
    CountingAgent(qintptr descriptor, int plans);
    ~CountingAgent() override;

    int ReportedPlans() const { return m_reportedPlans; }
    qint64 Commands() const { return m_commands; }
    // When the count last grew.
    Steady::time_point LastReport() const {
        return Steady::time_point(Steady::duration(m_lastReport.load()));
    }

private:
    void Listen(qintptr descriptor);
    void OnBlock(quint64 connection, const QByteArray& bytes);

    QThread m_thread;
    CommunServer* m_server = nullptr;
    std::vector<char> m_reported;
    std::atomic<int> m_reportedPlans{0};
    std::atomic<qint64> m_commands{0};
    std::atomic<Steady::rep> m_lastReport{0};
};
