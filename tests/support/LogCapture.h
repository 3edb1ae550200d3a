#pragma once

#include "QtPrinters.h"

#include <QString>
#include <QStringList>

#include <log4cpp/AppenderSkeleton.hh>

#include <mutex>
#include <vector>

// Records the lines written to the service's log category while it lives.
class LogCapture : public log4cpp::AppenderSkeleton {
public:
    struct Line {
        int priority;
        QString message;
    };

    LogCapture();
    ~LogCapture() override;

    std::vector<Line> Lines() const;
    QStringList Messages() const;
    int Count(const QString& message) const;
    int CountContaining(const QString& part) const;
    // Whether the exact message was written at the given level
    // (log4cpp::Priority::ERROR, WARN, INFO, DEBUG).
    bool Has(int priority, const QString& message) const;
    void Clear();

    void close() override {}
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout* layout) override;

protected:
    void _append(const log4cpp::LoggingEvent& event) override;

private:
    mutable std::mutex m_mutex;
    std::vector<Line> m_lines;
};
