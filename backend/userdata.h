#pragma once

#include <QString>
#include <QStringList>

class QXmlStreamAttributes;

/// The session record: what a process knows about the front end of its session, as a
/// session file tells it, and the names of the session's files.
class UserData
{
public:
    /// The result of reading a session file.
    enum class FileState {
        NotTried,
        Read,
        Missing, ///< or a link whose target is missing
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
    enum class Source {
        Default,
        GlobalFile,
        Environment,
        SessionFile,
        Option,
        Derived, ///< from other fields
    };

    /// Reads a session file, or the same XML from `xml` when that is not null. In any
    /// case `fileName` becomes the record's file name. An attribute replaces its field;
    /// a field without an attribute keeps its value.
    ///
    /// Returns false when the file is missing, is not a regular file, is larger than
    /// 64 KiB or is not well-formed; no field changes then. Returns false for a port or
    /// session that is not an unsigned 32-bit number, too. That field becomes 0, and the
    /// attributes after it, in the order port, host, cookie, session, are not read. An
    /// `xml` that is not well-formed changes no field and returns true.
    bool load(const QString& fileName, const QString& xml = QString());
    /// The result of the last load().
    FileState fileState() const { return mFileState; }

    /// Whether a host is known and the port is below 65536.
    bool isValid() const { return hasHost() && hasUsablePort(); }
    /// Whether a host is known.
    bool hasHost() const { return !hostNamesAndAddresses.isEmpty(); }
    /// Whether the port is below 65536. 0, an unknown port, is.
    bool hasUsablePort() const { return port < 65536; }
    /// Where the value of a field comes from.
    Source source(Field field) const { return mSources[field]; }

    /// The names and addresses of the front end's host, the preferred one first.
    QStringList getHostNamesAndAddresses() const { return hostNamesAndAddresses; }
    /// The preferred name of the front end's host; null when none is known.
    QString getCanonicalHostName() const { return hostNamesAndAddresses.value(0); }
    /// The front end's TCP port; 0 when it is not known.
    unsigned int getPort() const { return port; }
    /// Whether the port comes from a setting, an option or a file of today's date.
    bool isExplicitPort() const { return mExplicitPort; }
    /// The session number; -1 when it is not known.
    int getSession() const { return mSession; }
    /// The secret that the front end expects; null or empty when there is none.
    QString sessionCookie() const { return mSessionCookie; }
    /// Whether the cookie is part of the session's identity.
    bool getUseSessionCookies() const { return mUseSessionCookies; }
    /// The session file that was read or written last; null when there is none.
    QString sessionFileName() const { return mSessionFileName; }

    /// Sets the directory that replaces the home directory as the root of the session
    /// directory; null or empty for the home directory.
    void setSharedDirectory(const QString& directory) { mSharedDirectory = directory; }
    /// The directory that setSharedDirectory() set.
    QString getSharedDirectory() const { return mSharedDirectory; }

    // The names of the session's files. The files need not exist. With `create`, missing
    // directories are made; a failure shows when the name is used.

    /// The setting SESSION_PATH, which is never created, or else .talvora/session in the
    /// shared directory, or in the home directory when that is empty.
    static QString getSessionDirectory(const QString& sharedDirectory, bool create);
    /// The same for the record's shared directory.
    QString getSessionDirectory(bool create) const
    {
        return getSessionDirectory(mSharedDirectory, create);
    }
    /// The restart file for a null suffix, the launcher's marker for "supported", the hold
    /// file for "hold".
    QString getRestartFileName(const QString& suffix) const;
    /// HOST-SESSION, followed by the hash of the cookie when one is in use. The front end
    /// makes the same text.
    QString getSessionUniqueId() const;
    /// `name` and the unique id, without a directory.
    QString getSessionSpecificFileName(const QString& name) const;
    /// The topology of the job. Without `create`, an existing file of that name in TMPDIR
    /// is preferred.
    QString topologyFileName(bool create) const;
    /// The tarball that a setting or option names, or else a name as topologyFileName()
    /// makes it. A name in the session directory is kept for later calls.
    QString tarballFileName(bool create) const;
    /// The list of the job's hosts. Makes the session directory.
    QString hostFileName() const;
    /// The lock file of a program on a host, without a directory. A null host name stands
    /// for this host.
    QString getLockFileName(const QString& prefix, const QString& hostName) const;

    /// Makes the link "meta" in the session directory lead to the session file, once.
    /// Returns whether it does; false for a record without a session file, too.
    bool makeMetaSession();
    /// Removes the session file, the "latest" links in its directory, wherever they lead,
    /// and the "meta" link that this record made. Does nothing without a session file.
    void deleteSessionFile();

protected:
    /// The session file in the installation's root directory.
    QString getGlobalFile() const;
    /// The session file of one of the front end's sessions. Without `create`, the "latest"
    /// link of the host when the number is below 1, and that of all hosts when no host is
    /// known. With `create`, the session's own file in any case, and both "latest" links
    /// are replaced by links to it.
    QString getSessionFile(int session, bool create) const;
    /// The public load(), which also records the source of the fields that it sets.
    bool load(const QString& fileName, const QString& xml, Source source);
    /// Records where the value of a field comes from.
    void setSource(Field field, Source source) { mSources[field] = source; }

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
