#include "JournalLayout.h"

#include <log4cpp/Priority.hh>

std::string JournalLayout::format(const log4cpp::LoggingEvent& event) {
    // log4cpp's priorities are syslog's levels times 100.
    const int level = event.priority / 100;
    return "<" + std::to_string(level) + ">" + event.message + "\n";
}
