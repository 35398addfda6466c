#pragma once

#include <QString>

/// The volume (mounted file system) holding a folder, as far as Linux tells.
struct VolumeIdentity {
    QString uuid; ///< the file system's UUID, empty when it has none
    QString root; ///< the mount point, empty when unknown

    /// The volume of `path`: the mount containing it and its device's UUID from
    /// /dev/disk/by-uuid. Never fails; unknown parts stay empty.
    static VolumeIdentity of(const QString &path);
};
