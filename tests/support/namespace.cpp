// A host of a test's own, in namespaces: its name, its interfaces, its files.

#include "tests/support/namespace.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void check(bool ok, const char* what)
{
    if (!ok) {
        perror(what);
        abort();
    }
}

bool write(const char* path, const std::string& text)
{
    return static_cast<bool>(std::ofstream(path) << text << std::flush);
}

// A root directory of our own with the machine's directories in it. What is mounted
// below /mnt is still to be found there.
const QString makeOwnRoot = QStringLiteral(R"(set -e
    previous=$(mktemp -d)
    mount --rbind / "$previous"
    mount -t tmpfs -o mode=0755 none /mnt
    for entry in "$previous"/*; do
        if [ -L "$entry" ]; then
            cp -P "$entry" /mnt
        elif [ -d "$entry" ]; then
            mkdir "/mnt/${entry##*/}"
            mount --rbind "$entry" "/mnt/${entry##*/}"
        fi
    done
    umount --lazy "$previous"
    rmdir "$previous")");

} // namespace

bool Namespace::enter()
{
    const std::string ids[] = {"0 " + std::to_string(geteuid()) + " 1",
                               "0 " + std::to_string(getegid()) + " 1"};
    // A container may allow the first steps and refuse the later ones.
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWUTS) == -1 ||
        !write("/proc/self/setgroups", "deny") || !write("/proc/self/uid_map", ids[0]) ||
        !write("/proc/self/gid_map", ids[1]) ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == -1) {
        perror("No namespaces here");
        return false;
    }
    run(makeOwnRoot);
    const QString directory = QDir::currentPath();
    check(chroot("/mnt") == 0 && QDir::setCurrent(directory), "chroot");
    return true;
}

// What cannot be read, by find too, is not empty.
void Namespace::makeWritable(const QString& directory)
{
    run(QStringLiteral(R"(set -e
        mkdir -p /.shadow%1 /.links%1
        mount --rbind %1 /.shadow%1
        mount -t tmpfs -o mode=0755 none /.links%1
        find /.shadow%1 -mindepth 1 -maxdepth 1 \( -type l -o -type d -empty \) \
            -exec cp -dr -t /.links%1 {} + -o -exec ln -s -t /.links%1 {} + || true
        mount --move /.links%1 %1)")
            .arg(directory));
}

void Namespace::writeFile(const QString& path, const QByteArray& content, int mode)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile::remove(path);
    QFile file(path);
    check(file.open(QIODevice::WriteOnly) && file.write(content) == content.size() &&
              file.flush() && fchmod(file.handle(), static_cast<mode_t>(mode)) == 0,
          qPrintable(path));
}

void Namespace::run(const QString& command)
{
    check(system(qPrintable(command)) == 0, qPrintable(command));
}

void Namespace::setHosts(const QByteArray& hostName, const QByteArray& hostsFile)
{
    check(sethostname(hostName.constData(), static_cast<size_t>(hostName.size())) == 0,
          "sethostname");
    writeFile(QStringLiteral("/etc/hosts"), hostsFile);
    writeFile(QStringLiteral("/etc/nsswitch.conf"), "hosts: files\npasswd: files\n");
    writeFile(QStringLiteral("/etc/host.conf"), "multi on\n");
}
