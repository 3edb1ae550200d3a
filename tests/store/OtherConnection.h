#pragma once

#include <QString>

// A second connection to a state file, as another program would hold it; a
// transaction it leaves open is rolled back when it goes.
class OtherConnection {
public:
    explicit OtherConnection(const QString& path);
    ~OtherConnection();
    OtherConnection(const OtherConnection&) = delete;
    OtherConnection& operator=(const OtherConnection&) = delete;

    bool Exec(const QString& statement);
};
