#include "MetricsTextfile.h"

#include "framework/Logger.h"

#include <QFile>
#include <QFileInfo>

#include <pthread.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {
constexpr mode_t kMode = 0644;

bool WriteAll(int fd, const QByteArray& text) {
    const char* data = text.constData();
    qint64 left = text.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, static_cast<size_t>(left));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        data += written;
        left -= written;
    }
    return true;
}
} // namespace

MetricsTextfile::~MetricsTextfile() {
    Stop();
}

void MetricsTextfile::Start(const QString& path, quint64 intervalSecs, Build build) {
    if (path.isEmpty() || m_writer.joinable()) {
        return;
    }
    m_path = path;
    m_build = std::move(build);
    m_stopping = false;
    m_writer = std::thread([this, intervalSecs] { Run(intervalSecs); });
}

void MetricsTextfile::Stop() {
    if (!m_writer.joinable()) {
        return;
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_wake.notify_all();
    m_writer.join();
    Write(false);
}

void MetricsTextfile::Run(quint64 intervalSecs) {
    ::pthread_setname_np(::pthread_self(), "metrics-writer");
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_stopping) {
        lock.unlock();
        Write(true);
        lock.lock();
        m_wake.wait_for(lock, std::chrono::seconds(intervalSecs), [this] { return m_stopping; });
    }
}

// One line per streak of failures, and one when writing works again.
void MetricsTextfile::Write(bool up) {
    const QByteArray text = m_build(up);
    std::lock_guard<std::mutex> lock(m_writeMutex);
    int error = 0;
    if (WriteFile(text, error)) {
        if (m_failing) {
            Logger::Info(QString("The metrics file %1 is written again.").arg(m_path));
        }
        m_failing = false;
        return;
    }
    if (m_failing) {
        return;
    }
    m_failing = true;
    const QString folder = QFileInfo(m_path).absolutePath();
    if (error == ENOENT && !QFileInfo(folder).isDir()) {
        Logger::Warn(QString("The metrics folder %1 does not exist; no metrics are written until it does.")
                         .arg(folder));
        return;
    }
    Logger::Warn(QString("The metrics file %1 could not be written (%2); retrying every interval.")
                     .arg(m_path, QString::fromLocal8Bit(std::strerror(error))));
}

bool MetricsTextfile::WriteFile(const QByteArray& text, int& error) const {
    const QFileInfo target(m_path);
    // The collector reads only names ending in .prom.
    const QByteArray temporary =
        QFile::encodeName(QString("%1/.%2.tmp").arg(target.absolutePath(), target.fileName()));
    const int fd =
        ::open(temporary.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, kMode);
    if (fd < 0) {
        error = errno;
        return false;
    }
    // The umask may have taken bits the exporter needs.
    bool ok = ::fchmod(fd, kMode) == 0 && WriteAll(fd, text);
    error = ok ? 0 : errno;
    ok = ::close(fd) == 0 && ok;
    if (ok && ::rename(temporary.constData(), QFile::encodeName(m_path).constData()) == 0) {
        return true;
    }
    error = error != 0 ? error : errno;
    ::unlink(temporary.constData());
    return false;
}
