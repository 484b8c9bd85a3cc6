#pragma once

#include "backend/userdata.h"

#include <optional>

class BackendOptions;

/// The session record of a process that belongs to a session. It is resolved from, in the
/// order of precedence, the command-line options, the session file, the environment and
/// the session file in the installation's root directory. Options and environment also
/// decide which session file is read.
///
/// The front end of session N listens on port 4241 + N. So a port of the sessions 1 to 21
/// gives an unknown session, and a session gives an unknown port.
class BackendUserData : public UserData
{
public:
    /// Fills a newly constructed record. Creates no file and prints nothing. Returns
    /// isValid(). Settings that are not numbers and session files that cannot be read
    /// are ignored.
    bool load(const BackendOptions& options);

    /// The number of a port or session setting; none when load() ignores it.
    static std::optional<int> numberFrom(const QString& setting);
    /// The port at which the front end of a session listens.
    static unsigned int portOfSession(int session);

    /// The record as the text of a session file.
    [[nodiscard]] QString toXml() const;

    /// Writes the record as a session file of that name, as replaceFile() does. A null
    /// name stands for the session's own file in the session directory; the "latest" links
    /// then lead to it. The name becomes the record's file name. Returns false when the
    /// file cannot be written; an old file of that name is removed then.
    [[nodiscard]] bool save(const QString& fileName);

private:
    // The steps of load(). chooseSessionFile() uses the options; then the environment
    // overrides them until takeOptions().
    void chooseSessionFile(const BackendOptions& options);
    void takeEnvironment();
    void takeHostAndSessionOfEnvironment();
    void takeOptions(const BackendOptions& options);
    void complete();

    void setHosts(const QString& commaSeparated, Source source);
    void setExplicitPort(int number, Source source);
    void setSession(int number, Source source);
    void setCookie(const QString& cookie, Source source);
    void doNotUseCookies(Source source);
    void setTarball(const QString& fileName, Source source);
    void setSessionFileName(const QString& fileName, Source source);
    void setSharedDirectoryFrom(const QString& directory, Source source);
};
