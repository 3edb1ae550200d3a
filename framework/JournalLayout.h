#pragma once

#include <log4cpp/Layout.hh>

// Formats a line for the systemd journal: "<N>" syslog level, then the message.
class JournalLayout : public log4cpp::Layout {
public:
    std::string format(const log4cpp::LoggingEvent& event) override;
};
