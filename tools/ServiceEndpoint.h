#pragma once

#include <QString>

#include <sys/types.h>

// Where orvelctl finds the service's files and endpoints: the folder of the
// executable (where the package installs both programs), its cfg/config.ini
// and data/alldb.db.
class ServiceEndpoint {
public:
    static QString ApplicationDir();
    // Reads the configuration beside the executable when there is one.
    static void LoadConfiguration();
    static QString DatabasePath();
    static QString StatePath();
    // The group the service runs as, seen from outside: the owner group of its
    // data folder (of the application folder while there is none).
    static gid_t ServiceGroup();
};
