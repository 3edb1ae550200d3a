#include "ServiceEndpoint.h"

#include "framework/ConfigReader.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

QString ServiceEndpoint::ApplicationDir() {
    return QString("%1/").arg(QDir(QCoreApplication::applicationDirPath()).absolutePath());
}

void ServiceEndpoint::LoadConfiguration() {
    ConfigReader::IniReader(QString("%1%2").arg(ApplicationDir(), "cfg/config.ini"));
}

QString ServiceEndpoint::DatabasePath() {
    return QString("%1%2").arg(ApplicationDir(), "data/alldb.db");
}

QString ServiceEndpoint::StatePath() {
    return QString("%1%2").arg(ApplicationDir(), "data/state.db");
}

gid_t ServiceEndpoint::ServiceGroup() {
    const QFileInfo data(QString("%1%2").arg(ApplicationDir(), "data"));
    return static_cast<gid_t>(data.exists() ? data.groupId() : QFileInfo(ApplicationDir()).groupId());
}
