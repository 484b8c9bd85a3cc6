// The session record: where a session's front end is to be reached.

#pragma once

#include <QString>
#include <QStringList>

class QXmlStreamAttributes;

/// What a process knows of the front end whose session it belongs to, read
/// from a session file, and the names of the session's files.
class UserData
{
public:
    /// The result of reading a session file.
    enum class FileState {
        NotTried,
        Read,
        Missing, ///< or a link that leads nowhere
        Unreadable,
        NotRegular,
        TooLarge,      ///< more than 64 KiB
        NotWellFormed, ///< or with entities of its own, or in an unknown encoding
        NoSession,     ///< well-formed, but its root element is something else
        BadPort,       ///< its port is no unsigned 32-bit number
        BadSession,    ///< its session is none
    };

    /// The fields of which it is known where their value comes from.
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

    /// Reads a session file, or the same XML from `xml` when that is not null;
    /// the record's file name becomes `fileName` in any case. Each attribute
    /// that the file has replaces its field, the others keep theirs.
    ///
    /// False when the file is missing, is no regular file, is larger than
    /// 64 KiB or is not well-formed: nothing else changes then. False also
    /// for a port or session that is no unsigned 32-bit number; the field
    /// becomes 0, and attributes later in the order port, host, cookie, session
    /// are not read. An `xml` that is not well-formed counts as one without
    /// content: true.
    bool load(const QString& fileName, const QString& xml = QString());
    /// The result of the last load().
    FileState fileState() const { return mFileState; }

    /// Whether there is a host and the port is below 65536.
    bool isValid() const { return hasHost() && hasUsablePort(); }
    bool hasHost() const { return !hostNamesAndAddresses.isEmpty(); }
    bool hasUsablePort() const { return port < 65536; }
    Source source(Field field) const { return mSources[field]; }

    QStringList getHostNamesAndAddresses() const { return hostNamesAndAddresses; }
    /// The preferred name of the front end's host, null when there is none.
    QString getCanonicalHostName() const { return hostNamesAndAddresses.value(0); }
    /// The front end's TCP port, 0 when it is not known.
    unsigned int getPort() const { return port; }
    /// Whether the port was given explicitly or comes from a file of today.
    bool isExplicitPort() const { return mExplicitPort; }
    /// The session number, -1 when it is not known.
    int getSession() const { return mSession; }
    QString sessionCookie() const { return mSessionCookie; }
    /// Whether the cookie is part of the session's identity.
    bool getUseSessionCookies() const { return mUseSessionCookies; }
    QString sessionFileName() const { return mSessionFileName; }

    /// The directory that replaces the home directory as the root of the
    /// session directory.
    void setSharedDirectory(const QString& directory) { mSharedDirectory = directory; }
    QString getSharedDirectory() const { return mSharedDirectory; }

    // Names of the session's files. They are text: nothing is tested for
    // existence unless said. `create` makes the directories that are missing; a
    // failure to do so is left to whoever uses the name.

    /// The setting SESSION_PATH, or the directory .talvora/session in the shared
    /// or home directory. A SESSION_PATH is never created.
    static QString getSessionDirectory(const QString& sharedDirectory, bool create);
    QString getSessionDirectory(bool create) const
    {
        return getSessionDirectory(mSharedDirectory, create);
    }
    /// The restart file; with a suffix that is not null, the file that goes
    /// with it: "supported" is the launcher's marker, "hold" the hold file.
    QString getRestartFileName(const QString& suffix) const;
    /// HOST-SESSION and, when there is a cookie in use, its hash: the same
    /// text that the front end makes.
    QString getSessionUniqueId() const;
    /// `name` and the unique id; no directory.
    QString getSessionSpecificFileName(const QString& name) const;
    /// The job's topology. Without `create`, a file of that name in TMPDIR is
    /// preferred when it exists.
    QString topologyFileName(bool create) const;
    /// The installation's tarball; else as topologyFileName(), remembered.
    QString tarballFileName(bool create) const;
    /// The list of the job's hosts; creates the session directory.
    QString hostFileName() const;
    /// The lock file of a program on a host, this one when null; no directory.
    QString getLockFileName(const QString& prefix, const QString& hostName) const;

    /// Points the session directory's "meta" link at the session file, once.
    /// Whether the link is there.
    bool makeMetaSession();
    /// Removes the session file and the links that lead to it.
    void deleteSessionFile();

protected:
    /// The session file in the installation root.
    QString getGlobalFile() const;
    /// The session file of a session of this front end: the "latest" link of
    /// the host when the number is below 1, of all hosts when there is no host.
    /// `create` names the session's own file in any case and points the
    /// "latest" links at it, each atomically.
    QString getSessionFile(int session, bool create) const;
    /// As the public load(), for fields whose source is to be known.
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
