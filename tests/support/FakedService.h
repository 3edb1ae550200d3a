#pragma once

#include "FakeWallClock.h"
#include "ServiceFolder.h"
#include "ServiceProcess.h"

#include <optional>

// The real service under a wall clock moved by libfaketime, started and
// stopped as often as a test likes, each run with a log of its own.
class FakedService {
public:
    FakedService(ServiceFolder& folder, FakeWallClock& clock) : m_folder(folder), m_clock(clock) {}

    bool Start();
    bool Stop();
    // Ends the process as a crash would, with no chance to write anything.
    bool Kill();
    ServiceProcess& process() { return *m_process; }
    int CountLog(const QString& part) const;

private:
    ServiceFolder& m_folder;
    FakeWallClock& m_clock;
    std::optional<ServiceProcess> m_process;
};
