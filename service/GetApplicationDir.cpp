#include "GetApplicationDir.h"

#include <QCoreApplication>
#include <QDir>

QString GetApplicationDir() {
    return QString("%1/").arg(QDir(QCoreApplication::applicationDirPath()).absolutePath());
}
