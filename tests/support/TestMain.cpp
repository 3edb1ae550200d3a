#include <QCoreApplication>

#include <gtest/gtest.h>

#ifdef ORVEL_TSAN
#include "TsanEventApplication.h"
using TestApplication = TsanEventApplication;
#else
using TestApplication = QCoreApplication;
#endif

// Every test binary runs with an application object, so that event loops,
// timers, sockets and Qt SQL work as they do in the service.
int main(int argc, char** argv) {
    TestApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
