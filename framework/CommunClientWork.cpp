#include "CommunClientWork.h"

#include "ConfigReader.h"
#include "LogText.h"
#include "Logger.h"

#include <QTcpSocket>
#include <QThread>
#include <QTimer>

CommunClientWork::CommunClientWork(QObject* parent) : QObject(parent) {}

CommunClientWork::~CommunClientWork() {
    // A worker whose thread has ended released its connection there; one that
    // never ran on a thread of its own releases it here.
    if (!m_releasedOnThread.load(std::memory_order_acquire)) {
        ReleaseConnection();
    }
}

bool CommunClientWork::Init() {
    return true;
}

void CommunClientWork::UnInit() {}

void CommunClientWork::SetCommunAttribute(const CommunAttribute& attribute) {
    QMutexLocker locker(&m_attributeMutex);
    m_attribute = attribute;
}

// A destination port of 0 means the agent's configured port.
void CommunClientWork::Endpoint(QString& name, quint16& port) const {
    QMutexLocker locker(&m_attributeMutex);
    name = m_attribute.getDestSvrNameIp();
    port = m_attribute.getDestPort() == 0 ? ConfigReader::getAgentPort()
                                          : static_cast<quint16>(m_attribute.getDestPort());
}

QString CommunClientWork::Destination() const {
    QString name;
    quint16 port = 0;
    Endpoint(name, port);
    return QString("%1:%2").arg(name).arg(port);
}

void CommunClientWork::onreconnectServer() {
    EnsureSocket();
    if (m_socket->state() == QAbstractSocket::UnconnectedState) {
        Connect();
    }
}

void CommunClientWork::Post(const QByteArray& blocks) {
    QVector<QByteArray> spent;
    QMutexLocker locker(&m_inboxMutex);
    spent.swap(m_spent);
    m_inbox.push_back(blocks);
    if (m_inbox.size() > 1) {
        return; // the drain already on its way takes this frame too
    }
    QMetaObject::invokeMethod(this, &CommunClientWork::ScheduleDrain, Qt::QueuedConnection);
}

void CommunClientWork::ScheduleDrain() {
    if (m_gatherMSecs <= 0) {
        DrainInbox();
        return;
    }
    QTimer::singleShot(m_gatherMSecs, Qt::PreciseTimer, this, &CommunClientWork::DrainInbox);
}

void CommunClientWork::DrainInbox() {
    QVector<QByteArray> batch;
    {
        QMutexLocker locker(&m_inboxMutex);
        batch.swap(m_inbox);
    }
    for (const QByteArray& blocks : qAsConst(batch)) {
        onRequestData(blocks);
    }
    ReturnSpent(batch);
}

// The frames were made on the posting thread and go back to be freed there,
// with its next frame: freed here, each would take the lock of that thread's
// heap arena against it, and at start-up it makes a frame every few
// microseconds. What it has not taken after a short while is freed here.
void CommunClientWork::ReturnSpent(QVector<QByteArray>& batch) {
    {
        QMutexLocker locker(&m_inboxMutex);
        if (m_spent.isEmpty()) {
            m_spent.swap(batch);
        } else {
            m_spent += batch;
        }
    }
    if (!m_spentFreeing) {
        m_spentFreeing = true;
        QTimer::singleShot(kSpentHoldMSecs, this, &CommunClientWork::FreeSpent);
    }
}

void CommunClientWork::FreeSpent() {
    m_spentFreeing = false;
    QVector<QByteArray> spent;
    QMutexLocker locker(&m_inboxMutex);
    spent.swap(m_spent);
}

void CommunClientWork::onRequestData(QByteArray blocks) {
    EnsureSocket();
    if (m_socket->state() == QAbstractSocket::ConnectedState && m_pending.Empty()) {
        Write(FrameReader::Frame(blocks), blocks);
        return;
    }
    Buffer(blocks);
    if (m_socket->state() == QAbstractSocket::ConnectedState) {
        Flush();
    } else if (m_socket->state() == QAbstractSocket::UnconnectedState && !m_retryTimer->isActive()) {
        Connect();
    }
    PublishState();
}

void CommunClientWork::PublishState() {
    m_connected.store(m_socket != nullptr && m_socket->state() == QAbstractSocket::ConnectedState,
                      std::memory_order_relaxed);
    m_framesWaiting.store(m_pending.Size(), std::memory_order_relaxed);
}

void CommunClientWork::Buffer(const QByteArray& blocks) {
    const PendingFrames::Outcome outcome = m_pending.Push(blocks);
    // One line per outage, not one per dropped command.
    if (outcome.droppedOldest && m_dropped++ == 0) {
        Logger::Warn(QString("The agent link to %1 buffers %2 commands; the oldest are being dropped.")
                         .arg(Destination())
                         .arg(kBufferLimit));
    }
    if (outcome.mergedRun) {
        Q_EMIT runsMerged(outcome.planUuid, outcome.mergedDue, outcome.keptDue, outcome.mergedCount);
    }
    if (outcome.mergedRun && !m_mergedPlans.contains(outcome.planUuid)) {
        m_mergedPlans.insert(outcome.planUuid);
        Logger::Info(QString("Runs of plan[%1] that wait for the agent at %2 were merged; it runs once "
                             "when the agent is back.")
                         .arg(LogText::Outside(outcome.planUuid), Destination()));
    }
}

void CommunClientWork::EnsureSocket() {
    if (m_socket != nullptr) {
        return;
    }
    m_socket = new QTcpSocket();
    m_retryTimer = new QTimer();
    m_retryTimer->setSingleShot(true);
    connect(m_socket, &QTcpSocket::connected, this, &CommunClientWork::onConnected);
    connect(m_socket, &QTcpSocket::disconnected, this, &CommunClientWork::onDisconnected);
    connect(m_socket, &QTcpSocket::readyRead, this, &CommunClientWork::onReadyRead);
    connect(m_socket, &QAbstractSocket::errorOccurred, this, [this] {
        if (m_socket->state() == QAbstractSocket::UnconnectedState) {
            onDisconnected();
        }
    });
    connect(m_retryTimer, &QTimer::timeout, this, &CommunClientWork::Connect);
    // The socket and timer belong to this thread and must die on it.
    connect(QThread::currentThread(), &QThread::finished, this, &CommunClientWork::onThreadFinished,
            Qt::DirectConnection);
}

void CommunClientWork::Connect() {
    QString name;
    quint16 port = 0;
    Endpoint(name, port);
    m_reader = FrameReader();
    m_socket->connectToHost(name, port);
}

void CommunClientWork::Flush() {
    while (!m_pending.Empty()) {
        const QByteArray frame = m_pending.TakeFront();
        Write(frame, FrameReader::PayloadOf(frame));
    }
}

void CommunClientWork::Write(const QByteArray& frame, const QByteArray& blocks) {
    m_socket->write(frame);
    m_unanswered.Written(blocks);
}

// Before anything handed during the outage, so that a newer run of the same
// plan still replaces the one sent again.
void CommunClientWork::KeepUnanswered() {
    for (const UnansweredRuns::Run& run : m_unanswered.Take()) {
        Logger::Info(
            QString("The run of plan[%1] due [%2] got no answer from the agent at %3 before the link "
                    "dropped; it is sent again when the agent is back.")
                .arg(LogText::Outside(run.planUuid), LogText::Outside(run.dueStart), Destination()));
        Buffer(run.payload);
    }
}

void CommunClientWork::ScheduleRetry() {
    if (m_retryTimer->isActive()) {
        return;
    }
    m_retryTimer->start(m_retryMSecs);
    m_retryMSecs = qMin(m_retryMSecs * 2, kLastRetryMSecs);
}

void CommunClientWork::onConnected() {
    m_retryMSecs = kFirstRetryMSecs;
    m_reportedFailure = false;
    Logger::Info(QString("Connected to the agent at %1.").arg(Destination()));
    if (m_dropped != 0) {
        Logger::Warn(
            QString("%1 commands to the agent were dropped while it was unreachable.").arg(m_dropped));
        m_dropped = 0;
    }
    m_mergedPlans.clear();
    Flush();
    PublishState();
}

void CommunClientWork::onDisconnected() {
    KeepUnanswered();
    if (!m_reportedFailure) {
        Logger::Warn(QString("No connection to the agent at %1 (%2); retrying with a growing delay.")
                         .arg(Destination(), m_socket->errorString()));
        m_reportedFailure = true;
    }
    ScheduleRetry();
    PublishState();
}

void CommunClientWork::onReadyRead() {
    m_reader.Append(m_socket->readAll());
    QByteArray payload;
    while (m_reader.Next(payload)) {
        m_unanswered.Answered(payload);
        Q_EMIT returnResult(payload);
    }
    if (m_reader.Failed()) {
        Logger::Warn(QString("The agent at %1 sent a frame of %2 bytes; connection closed.")
                         .arg(Destination())
                         .arg(m_reader.RefusedLength()));
        m_socket->abort();
    }
}

void CommunClientWork::onThreadFinished() {
    ReleaseConnection();
    m_releasedOnThread.store(true, std::memory_order_release);
}

void CommunClientWork::ReleaseConnection() {
    delete m_retryTimer;
    m_retryTimer = nullptr;
    if (m_socket != nullptr) {
        m_socket->disconnect(this);
        m_socket->abort();
        delete m_socket;
        m_socket = nullptr;
    }
    PublishState();
}
