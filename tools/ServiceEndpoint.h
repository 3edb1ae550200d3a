#pragma once

#include <QString>

// Where orvelctl finds the service's files and endpoints: the folder of the
// executable (where the package installs both programs), its cfg/config.ini
// and data/alldb.db.
class ServiceEndpoint {
public:
    static QString ApplicationDir();
    // Reads the configuration beside the executable when there is one.
    static void LoadConfiguration();
    static QString DatabasePath();
};
