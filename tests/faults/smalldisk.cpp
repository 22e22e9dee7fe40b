#include "smalldisk.h"

#include "files.h"

#include <cerrno>
#include <cstring>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

void must(bool done, const char *what)
{
    if (!done)
        qFatal("%s: %s", what, std::strerror(errno));
}

QByteArray sizeOption(qint64 bytes)
{
    return "size=" + QByteArray::number(bytes);
}

} // namespace

void SmallDisk::prepare()
{
    const QByteArray user = "0 " + QByteArray::number(getuid()) + " 1";
    const QByteArray group = "0 " + QByteArray::number(getgid()) + " 1";
    if (unshare(CLONE_NEWNS) != 0) {
        must(unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0, "no name space");
        files::write("/proc/self/setgroups", "deny");
        files::write("/proc/self/uid_map", user);
        files::write("/proc/self/gid_map", group);
    }
    // What is mounted here must not show outside.
    must(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "no private mounts");
}

SmallDisk::SmallDisk(qint64 bytes)
{
    mountWith(0, sizeOption(bytes));
}

SmallDisk::~SmallDisk()
{
    umount2(m_directory.path().toLocal8Bit(), MNT_DETACH);
}

void SmallDisk::resize(qint64 bytes)
{
    mountWith(MS_REMOUNT, sizeOption(bytes));
}

void SmallDisk::protect()
{
    mountWith(MS_REMOUNT | MS_RDONLY, QByteArray());
}

void SmallDisk::protectFolder(const QString &path)
{
    const QByteArray folder = path.toLocal8Bit();
    must(mount(folder, folder, nullptr, MS_BIND, nullptr) == 0, "no folder of its own");
    must(mount(folder, folder, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0,
         "no protected folder");
}

void SmallDisk::mountWith(unsigned long flags, const QByteArray &options)
{
    must(mount("tmpfs", m_directory.path().toLocal8Bit(), "tmpfs", flags, options.constData()) == 0,
         "no small disk");
}
