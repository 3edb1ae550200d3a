#include "PeerAccessPolicy.h"

#include "ConfigReader.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <optional>
#include <vector>

namespace {
std::optional<unsigned long> NumericId(const QString& token) {
    bool ok = false;
    const unsigned long id = token.toULong(&ok);
    return ok ? std::optional<unsigned long>(id) : std::nullopt;
}

long BufferSize(int name) {
    const long size = ::sysconf(name);
    return size > 0 ? size : 16384;
}

std::optional<uid_t> UserId(const QString& token) {
    if (const auto id = NumericId(token)) {
        return static_cast<uid_t>(*id);
    }
    passwd entry = {};
    passwd* found = nullptr;
    std::vector<char> buffer(static_cast<size_t>(BufferSize(_SC_GETPW_R_SIZE_MAX)));
    ::getpwnam_r(token.toLocal8Bit().constData(), &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr ? std::optional<uid_t>(found->pw_uid) : std::nullopt;
}

std::optional<gid_t> GroupId(const QString& token) {
    if (const auto id = NumericId(token)) {
        return static_cast<gid_t>(*id);
    }
    group entry = {};
    group* found = nullptr;
    std::vector<char> buffer(static_cast<size_t>(BufferSize(_SC_GETGR_R_SIZE_MAX)));
    ::getgrnam_r(token.toLocal8Bit().constData(), &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr ? std::optional<gid_t>(found->gr_gid) : std::nullopt;
}

// The account's name and primary group, if the database knows the user.
bool LookUpUser(uid_t uid, QByteArray& name, gid_t& primaryGroup) {
    passwd entry = {};
    passwd* found = nullptr;
    std::vector<char> buffer(static_cast<size_t>(BufferSize(_SC_GETPW_R_SIZE_MAX)));
    ::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found);
    if (found == nullptr) {
        return false;
    }
    name = found->pw_name;
    primaryGroup = found->pw_gid;
    return true;
}

std::vector<gid_t> GroupsOf(const QByteArray& name, gid_t primaryGroup) {
    int count = 32;
    std::vector<gid_t> groups(static_cast<size_t>(count));
    if (::getgrouplist(name.constData(), primaryGroup, groups.data(), &count) < 0) {
        groups.resize(static_cast<size_t>(count));
        ::getgrouplist(name.constData(), primaryGroup, groups.data(), &count);
    }
    groups.resize(static_cast<size_t>(count));
    return groups;
}

QStringList Tokens(const QStringList& list) {
    QStringList tokens;
    for (const QString& item : list) {
        for (const QString& token : item.split(',', Qt::SkipEmptyParts)) {
            if (!token.trimmed().isEmpty()) {
                tokens << token.trimmed();
            }
        }
    }
    return tokens;
}
} // namespace

PeerAccessPolicy::PeerAccessPolicy(const QStringList& users, const QStringList& groups,
                                   QStringList* problems) {
    for (const QString& token : Tokens(users)) {
        if (const auto uid = UserId(token)) {
            m_users.insert(*uid);
        } else if (problems != nullptr) {
            *problems << QString("AllowedUsers names the unknown user '%1'.").arg(token);
        }
    }
    for (const QString& token : Tokens(groups)) {
        if (const auto gid = GroupId(token)) {
            m_groups.insert(*gid);
        } else if (problems != nullptr) {
            *problems << QString("AllowedGroups names the unknown group '%1'.").arg(token);
        }
    }
}

PeerAccessPolicy PeerAccessPolicy::FromConfig(gid_t serviceGroup, QStringList* problems) {
    const QStringList groups = ConfigReader::hasAllowedGroups() ? ConfigReader::getAllowedGroups()
                                                                : QStringList{QString::number(serviceGroup)};
    return PeerAccessPolicy(ConfigReader::getAllowedUsers(), groups, problems);
}

bool PeerAccessPolicy::Allows(uid_t uid) const {
    if (m_users.contains(uid)) {
        return true;
    }
    if (m_groups.isEmpty()) {
        return false;
    }
    QByteArray name;
    gid_t primaryGroup = 0;
    if (!LookUpUser(uid, name, primaryGroup)) {
        return false;
    }
    for (const gid_t gid : GroupsOf(name, primaryGroup)) {
        if (m_groups.contains(gid)) {
            return true;
        }
    }
    return false;
}

bool PeerAccessPolicy::Admits(const PeerCredentials& peer) const {
    switch (peer.kind()) {
    case PeerCredentials::Kind::User:
        return Allows(peer.uid());
    case PeerCredentials::Kind::Remote:
        return ConfigReader::getAllowRemote();
    case PeerCredentials::Kind::Unknown:
        break;
    }
    return false;
}

QString PeerAccessPolicy::UserLabel(uid_t uid) {
    QByteArray name;
    gid_t primaryGroup = 0;
    if (!LookUpUser(uid, name, primaryGroup)) {
        return QString::number(uid);
    }
    return QString("%1 (%2)").arg(QString::fromLocal8Bit(name)).arg(uid);
}
