#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// One run of a command-line tool: its exit code and what it printed.
struct ToolRun {
    int code;
    QString out;
    QString err;

    static ToolRun Of(const QString& program, const QStringList& arguments,
                      const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment()) {
        QProcess process;
        process.setProcessEnvironment(environment);
        process.start(program, arguments);
        process.waitForFinished(20000);
        return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
                QString::fromUtf8(process.readAllStandardError())};
    }
};
