#pragma once

#include <QString>
#include <QStringList>

class QXmlStreamAttributes;

/// The session record: how to connect to the front end of a session, and the names of the
/// session's files. A session file has the same data, see docs/session-files.md.
class UserData
{
public:
    /// The result of reading a session file.
    enum class FileState {
        NotTried,
        Read,
        Missing, ///< or a dangling link
        Unreadable,
        NotRegular,
        TooLarge,      ///< more than 64 KiB
        NotWellFormed, ///< or declares entities, or is in an unknown encoding
        NoSession,     ///< well-formed, but the root element is not a session
        BadPort,       ///< the port is not an unsigned 32-bit number
        BadSession,    ///< the session is not an unsigned 32-bit number
    };

    /// The fields whose source is recorded.
    enum Field {
        Hosts,
        Port,
        Session,
        Cookie,
        CookieUse,
        SharedDirectory,
        Tarball,
        SessionFileName,
        FieldCount,
    };
    /// Where the value of a field comes from.
    enum class Source {
        Default,
        GlobalFile, ///< the session file in the installation's root directory
        Environment,
        SessionFile,
        Option,
        Derived, ///< from other fields
    };

    /// Reads a session file, or `xml` in its place unless that is null. Sets
    /// sessionFileName() in any case. An attribute replaces its field; a field without an
    /// attribute keeps its value.
    ///
    /// Returns false, and changes no field, when the file is missing, is not a regular file,
    /// is larger than 64 KiB or is not well-formed. Also returns false when the port or the
    /// session is not an unsigned 32-bit number: that field becomes 0, and the attributes
    /// after it, in the order port, host, cookie, session, are not read. Returns true, and
    /// changes no field, when the root element is no session or `xml` is not well-formed.
    bool load(const QString& fileName, const QString& xml = QString());
    /// The result of the last load().
    FileState fileState() const { return mFileState; }

    /// Whether hasHost() and hasUsablePort() are true.
    bool isValid() const { return hasHost() && hasUsablePort(); }
    /// Whether at least one name or address of the front end's host is known.
    bool hasHost() const { return !hostNamesAndAddresses.isEmpty(); }
    /// Whether the port is below 65536; true for 0, an unknown port.
    bool hasUsablePort() const { return port < 65536; }
    /// The source of the value of a field; Default for one that was never set.
    Source source(Field field) const { return mSources[field]; }

    /// The names and addresses of the front end's host, the preferred one first.
    QStringList getHostNamesAndAddresses() const { return hostNamesAndAddresses; }
    /// The preferred name of the front end's host; null when none is known.
    QString getCanonicalHostName() const { return hostNamesAndAddresses.value(0); }
    /// The front end's TCP port; 0 when it is not known.
    unsigned int getPort() const { return port; }
    /// Whether the port comes from a setting, an option, or a session file that was written
    /// today.
    bool isExplicitPort() const { return mExplicitPort; }
    /// The session number; -1 when it is not known.
    int getSession() const { return mSession; }
    /// The secret that a helper sends to the front end; null or empty when there is none.
    QString sessionCookie() const { return mSessionCookie; }
    /// Whether getSessionUniqueId() contains a hash of the cookie.
    bool getUseSessionCookies() const { return mUseSessionCookies; }
    /// The path of the session file that was read or written last; null when there is none.
    QString sessionFileName() const { return mSessionFileName; }

    /// Sets the directory that replaces the home directory as the root of the session
    /// directory; null or empty for the home directory.
    void setSharedDirectory(const QString& directory) { mSharedDirectory = directory; }
    QString getSharedDirectory() const { return mSharedDirectory; }

    // The paths of the session's files, which need not exist. With `create`, the functions
    // create missing directories; they do not report a failure.

    /// The session directory: the setting SESSION_PATH, which is never created, or else
    /// .talvora/session in the shared directory, or in the home directory when that is null
    /// or empty.
    static QString getSessionDirectory(const QString& sharedDirectory, bool create);
    /// The session directory for getSharedDirectory(). With `create`, creates it unless
    /// SESSION_PATH is set.
    QString getSessionDirectory(bool create) const
    {
        return getSessionDirectory(mSharedDirectory, create);
    }
    /// The restart file for a null suffix, the marker file for "supported", the hold file
    /// for "hold".
    QString getRestartFileName(const QString& suffix) const;
    /// HOST-SESSION, followed by -HASH if a cookie is in use, where HASH are 8 hexadecimal
    /// digits. The front end computes the same text. Without a host or a session number, the
    /// text has an empty HOST or -1.
    QString getSessionUniqueId() const;
    /// NAME-ID with getSessionUniqueId(), without a directory.
    QString getSessionSpecificFileName(const QString& name) const;
    /// The file that describes the job, in the session directory. Without `create`, an
    /// existing file of the same name in TMPDIR is preferred.
    QString topologyFileName(bool create) const;
    /// The tarball of the installation: the one that a setting or option names, or else a
    /// path like that of topologyFileName(). A path in the session directory is kept for
    /// later calls.
    QString tarballFileName(bool create) const;
    /// The file that lists the hosts of the job. Creates the session directory.
    QString hostFileName() const;
    /// The lock file of a program on a host, or on this host if the name is null; without a
    /// directory.
    QString getLockFileName(const QString& prefix, const QString& hostName) const;

    /// Creates the link "meta" in the session directory, which leads to the session file.
    /// Returns false when that fails or there is no session file. After a success, later
    /// calls do nothing and return true.
    bool makeMetaSession();
    /// Removes the session file, the "latest" links in its directory, wherever they lead,
    /// and the "meta" link of this record. Ignores failures. Does nothing without a session
    /// file.
    void deleteSessionFile();

protected:
    /// The session file in the installation's root directory.
    QString getGlobalFile() const;
    /// The session file of a session in the session directory. Without `create`, it is
    /// HOST-latest when the number is below 1, and latest when no host is known. With
    /// `create`, it is HOST-NUMBER in any case, and both links are replaced by links to it.
    QString getSessionFile(int session, bool create) const;
    /// As the public load(), and records the source of the fields that it sets.
    bool load(const QString& fileName, const QString& xml, Source source);
    /// Sets the member for a field, and records the source of the value.
    template <typename Member, typename Value>
    void set(Member* member, const Value& value, Field field, Source source)
    {
        *member = value;
        mSources[field] = source;
    }

    QStringList hostNamesAndAddresses;
    QString mSessionCookie;
    QString mSessionFileName;
    QString mMyHostName;
    QString mSharedDirectory;
    mutable QString mTarballFileName;
    quint32 port = 0;
    qint32 mSession = -1;
    bool mExplicitPort = false;
    bool mUseSessionCookies = true;
    bool metaSession = false;

private:
    FileState takeAttributes(const QXmlStreamAttributes& attributes, Source source);

    FileState mFileState = FileState::NotTried;
    Source mSources[FieldCount] = {};
};
