#include "ServiceEndpoint.h"

#include "framework/ConfigReader.h"

#include <QCoreApplication>
#include <QDir>

QString ServiceEndpoint::ApplicationDir() {
    return QString("%1/").arg(QDir(QCoreApplication::applicationDirPath()).absolutePath());
}

void ServiceEndpoint::LoadConfiguration() {
    ConfigReader::IniReader(QString("%1%2").arg(ApplicationDir(), "cfg/config.ini"));
}

QString ServiceEndpoint::DatabasePath() {
    return QString("%1%2").arg(ApplicationDir(), "data/alldb.db");
}
