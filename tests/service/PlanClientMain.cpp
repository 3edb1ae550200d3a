// Sends the delete command for a plan a given number of times on one
// connection and prints each result code, so that a test can send it as
// another user (under setpriv).
#include "support/PlanClient.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc != 4) {
        std::fputs("usage: plan_client PORT PLAN COUNT\n", stderr);
        return 2;
    }
    PlanClient client(static_cast<quint16>(QByteArray(argv[1]).toUInt()));
    const int count = QByteArray(argv[3]).toInt();
    for (int i = 0; i < count; ++i) {
        client.SendDeletePlan(QString::fromLocal8Bit(argv[2]));
        std::printf("%d\n", client.NextResult(10000));
    }
    return 0;
}
