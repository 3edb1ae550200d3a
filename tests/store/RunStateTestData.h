#pragma once

#include "store/RunStateStore.h"

#include <QSet>
#include <QString>
#include <QStringList>

#include <functional>

// What the run state tests make and read of a state file.
namespace RunStateTestData {
// "plan-0" to "plan-<count - 1>".
QSet<QString> Plans(int count);
// True for the plans of the set, as the registry answers the store.
RunStateStore::IsLivePlan LiveAmong(const QSet<QString>& plans);
// Rows as "plan next end due handed result", read by a second connection as
// orvelctl reads them.
QStringList Rows(const QString& path);
// Every column of a row filled, a little different for each `i`.
RunStateStore::Schedule FullSchedule(int i);
void Execute(const QString& path, const QStringList& statements);
void WriteFile(const QString& path, const QByteArray& bytes);
// Polls for up to 10 s without running the event loop, as an application
// thread busy with a long poll would.
bool WaitWithoutEvents(const std::function<bool()>& done);
} // namespace RunStateTestData
