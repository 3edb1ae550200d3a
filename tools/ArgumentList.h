#pragma once

#include <QMap>
#include <QString>
#include <QStringList>

// "--flag value" pairs of one subcommand, checked against the flags it knows.
class ArgumentList {
public:
    // False with an error text when a flag is unknown, repeated or has no value.
    bool Parse(const QStringList& arguments, const QStringList& known, QString& error);
    bool Has(const QString& flag) const { return m_values.contains(flag); }
    QString Value(const QString& flag, const QString& fallback = QString()) const {
        return m_values.value(flag, fallback);
    }
    bool Unsigned(const QString& flag, quint64 fallback, quint64& value, QString& error) const;

private:
    QMap<QString, QString> m_values;
};
