#include "ArgumentList.h"

#include "ToolOutput.h"

int ArgumentList::Read(const QStringList& arguments, const QString& subcommand, const QString& help,
                       const QStringList& known, const QStringList& switches) {
    if (arguments.contains("--help")) {
        return ToolOutput::Out(help, 0);
    }
    QStringList rest = arguments;
    for (const QString& flag : switches) {
        if (rest.removeAll(flag) > 0) {
            m_switches.insert(flag);
        }
    }
    QString error;
    if (!Parse(rest, known, error)) {
        return ToolOutput::UsageError(subcommand, error);
    }
    return kGoOn;
}

bool ArgumentList::Parse(const QStringList& arguments, const QStringList& known, QString& error) {
    for (int i = 0; i < arguments.size(); i += 2) {
        const QString& flag = arguments.at(i);
        if (!known.contains(flag)) {
            error = QString("unknown argument '%1'").arg(flag);
            return false;
        }
        if (i + 1 >= arguments.size()) {
            error = QString("%1 needs a value").arg(flag);
            return false;
        }
        if (m_values.contains(flag)) {
            error = QString("%1 given twice").arg(flag);
            return false;
        }
        m_values.insert(flag, arguments.at(i + 1));
    }
    return true;
}

bool ArgumentList::Unsigned(const QString& flag, quint64 fallback, quint64& value, QString& error) const {
    if (!Has(flag)) {
        value = fallback;
        return true;
    }
    const QString text = Value(flag).trimmed();
    bool ok = !text.isEmpty() && text.front().isDigit();
    value = ok ? text.toULongLong(&ok, 10) : 0;
    if (!ok) {
        error = QString("%1 must be an unsigned whole number, not '%2'").arg(flag, Value(flag));
    }
    return ok;
}
