#pragma once

#include "PeerCredentials.h"

#include <QSet>
#include <QStringList>

#include <sys/types.h>

// Who may send plan commands: the users of [Communication] AllowedUsers and
// the members of the groups of AllowedGroups, each a comma list of names or
// numeric ids. Without AllowedGroups the service's own group is allowed, so
// an administrator is let in by adding them to that group.
class PeerAccessPolicy {
public:
    PeerAccessPolicy() = default;
    // Names that do not resolve are left out and reported in `problems`, one
    // text each.
    PeerAccessPolicy(const QStringList& users, const QStringList& groups, QStringList* problems = nullptr);
    // From the configuration read by ConfigReader; serviceGroup stands in for
    // AllowedGroups when the key is not set.
    static PeerAccessPolicy FromConfig(gid_t serviceGroup, QStringList* problems = nullptr);

    // A user is allowed by id, or through its primary or supplementary groups
    // in the account database (a peer's own process may have dropped some).
    bool Allows(uid_t uid) const;
    // Remote peers cannot be identified; they are let in only where the
    // listener was opened to them with AllowRemote=true.
    bool Admits(const PeerCredentials& peer) const;

    // "nobody (65534)", or the bare id of a user the database does not know.
    static QString UserLabel(uid_t uid);

private:
    QSet<uid_t> m_users;
    QSet<gid_t> m_groups;
};
