#pragma once

#include <QMap>
#include <QSet>
#include <QString>
#include <QStringList>

// "--flag value" pairs of one subcommand, checked against the flags it knows.
class ArgumentList {
public:
    static constexpr int kGoOn = -1;

    // Reads a subcommand's arguments: shows its help for --help, takes out the
    // switches (flags without a value), then the "--flag value" pairs. The
    // exit code when the subcommand is done with that (its help shown, or a
    // usage error), else kGoOn.
    int Read(const QStringList& arguments, const QString& subcommand, const QString& help,
             const QStringList& known, const QStringList& switches = {});
    bool Switch(const QString& flag) const { return m_switches.contains(flag); }
    // False with an error text when a flag is unknown, repeated or has no value.
    bool Parse(const QStringList& arguments, const QStringList& known, QString& error);
    bool Has(const QString& flag) const { return m_values.contains(flag); }
    QString Value(const QString& flag, const QString& fallback = QString()) const {
        return m_values.value(flag, fallback);
    }
    bool Unsigned(const QString& flag, quint64 fallback, quint64& value, QString& error) const;

private:
    QMap<QString, QString> m_values;
    QSet<QString> m_switches;
};
