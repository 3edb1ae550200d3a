#include <QCoreApplication>

#include <gtest/gtest.h>

// Every test binary runs with an application object, so that event loops,
// timers, sockets and Qt SQL work as they do in the service.
int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
