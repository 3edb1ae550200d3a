// Who a peer is, and whether the configured users and groups let it in.
#include "framework/PeerCredentials.h"
#include "framework/ConfigReader.h"
#include "framework/PeerAccessPolicy.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

namespace {
constexpr uid_t kNobody = 65534;
constexpr uid_t kNoSuchUser = 3999999;

// The server side of a TCP connection on the given loopback address.
PeerCredentials TcpPeerOn(const QHostAddress& address) {
    QTcpServer server;
    if (!server.listen(address, 0)) {
        return PeerCredentials::OfUser(kNoSuchUser);
    }
    QTcpSocket client;
    client.connectToHost(address, server.serverPort());
    if (!server.waitForNewConnection(10000)) {
        return PeerCredentials::OfUser(kNoSuchUser);
    }
    QTcpSocket* accepted = server.nextPendingConnection();
    return PeerCredentials::OfSocket(static_cast<int>(accepted->socketDescriptor()));
}

TEST(PeerCredentials, NamesTheLocalPeersUser) {
    int pair[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    const PeerCredentials unix = PeerCredentials::OfSocket(pair[0]);
    ::close(pair[0]);
    ::close(pair[1]);
    EXPECT_EQ(unix.kind(), PeerCredentials::Kind::User);
    EXPECT_EQ(unix.uid(), ::geteuid());

    for (const QHostAddress& address : {QHostAddress(QHostAddress::LocalHost), QHostAddress("127.0.0.2"),
                                        QHostAddress(QHostAddress::LocalHostIPv6)}) {
        const PeerCredentials tcp = TcpPeerOn(address);
        if (tcp.uid() == kNoSuchUser && address != QHostAddress(QHostAddress::LocalHost)) {
            continue; // no such loopback address on this machine
        }
        EXPECT_EQ(tcp.kind(), PeerCredentials::Kind::User) << address.toString().toStdString();
        EXPECT_EQ(tcp.uid(), ::geteuid()) << address.toString().toStdString();
        EXPECT_EQ(tcp.Describe(), QString("user id %1").arg(::geteuid()));
    }
}

TEST(PeerCredentials, WhatIsNotAConnectedSocketIsUnknown) {
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    EXPECT_EQ(PeerCredentials::OfSocket(pipe[0]).kind(), PeerCredentials::Kind::Unknown);
    ::close(pipe[0]);
    ::close(pipe[1]);
    EXPECT_EQ(PeerCredentials::OfSocket(-1).kind(), PeerCredentials::Kind::Unknown);
    EXPECT_EQ(PeerCredentials().Describe(), "a peer whose user id is unknown");
}

struct AccessCase {
    QStringList users;
    QStringList groups;
    uid_t uid;
    bool allowed;
};

TEST(PeerAccessPolicy, UsersAndGroupsByNameOrId) {
    const AccessCase cases[] = {
        {{"root"}, {}, 0, true},
        {{"0"}, {}, 0, true},
        {{"root"}, {}, kNobody, false},
        {{"root, nobody"}, {}, kNobody, true},
        {{"root", "65534"}, {}, kNobody, true},
        // nobody's primary group is nogroup.
        {{}, {"nogroup"}, kNobody, true},
        {{}, {"65534"}, kNobody, true},
        {{}, {"root"}, kNobody, false},
        {{}, {"root"}, 0, true},
        // A user the account database does not know has no groups.
        {{}, {"nogroup", "root"}, kNoSuchUser, false},
        {{"3999999"}, {}, kNoSuchUser, true},
        {{}, {}, 0, false},
    };
    for (const AccessCase& access : cases) {
        const PeerAccessPolicy policy(access.users, access.groups);
        EXPECT_EQ(policy.Allows(access.uid), access.allowed)
            << access.users.join('|').toStdString() << " / " << access.groups.join('|').toStdString()
            << " uid " << access.uid;
        EXPECT_EQ(policy.Admits(PeerCredentials::OfUser(access.uid)), access.allowed);
        EXPECT_FALSE(policy.Admits(PeerCredentials()));
    }
}

TEST(PeerAccessPolicy, NamesThatDoNotResolveAreReported) {
    QStringList problems;
    const PeerAccessPolicy policy({"root", "no-such-user-here"}, {"no-such-group-here"}, &problems);
    EXPECT_EQ(problems, (QStringList{"AllowedUsers names the unknown user 'no-such-user-here'.",
                                     "AllowedGroups names the unknown group 'no-such-group-here'."}));
    EXPECT_TRUE(policy.Allows(0));
}

TEST(PeerAccessPolicy, DefaultsAreRootAndTheServicesOwnGroup) {
    ConfigReader::ResetToDefaults();
    const PeerAccessPolicy policy = PeerAccessPolicy::FromConfig(65534);
    EXPECT_TRUE(policy.Allows(0));
    EXPECT_TRUE(policy.Allows(kNobody));
    EXPECT_FALSE(policy.Allows(kNoSuchUser));
    EXPECT_EQ(PeerAccessPolicy::UserLabel(kNobody), "nobody (65534)");
    EXPECT_EQ(PeerAccessPolicy::UserLabel(kNoSuchUser), "3999999");
}
} // namespace
