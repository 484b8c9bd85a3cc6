#pragma once

#include "backend/userdata.h"

#include <optional>

class BackendOptions;

/// A session record resolved from everything that may name the session, and
/// written back as a session file. The precedence, highest first: command-line
/// options; the session file; the environment; the session file in the
/// installation root. Options and environment also decide which session file
/// is read.
///
/// The front end of session N listens on port 4241 + N, so a known port of the
/// sessions 1 to 21 gives an unknown session, and a session an unknown port.
class BackendUserData : public UserData
{
public:
    /// Fills a freshly constructed record; creates nothing and prints nothing.
    /// False when no usable session was found (see isValid()). Numbers in the
    /// environment that do not parse, and session files that cannot be read,
    /// count as absent.
    bool load(const BackendOptions& options);

    /// The number that a port or session setting is; none when it does not
    /// parse, and load() takes no notice of it.
    static std::optional<int> numberFrom(const QString& setting);
    /// The port at which the front end of a session listens.
    static unsigned int portOfSession(int session);

    /// The record as the text of a session file.
    [[nodiscard]] QString toXml() const;

    /// Writes the record as a session file, whose name becomes the record's:
    /// `fileName`, or, when that is null, the session directory's file for this
    /// session, at which the "latest" links are pointed. The file has the
    /// permission bits 0600, whatever the umask, and takes the place of what
    /// was there, a link included, in one step: a reader finds all of the old
    /// one or all of the new. False when it could not be written; there is no
    /// file of that name then, unless it is one that this user may not remove. A
    /// "latest" link that cannot be replaced keeps leading where it led.
    [[nodiscard]] bool save(const QString& fileName);

private:
    // The steps of load(). Options decide which file is read, too, and are then
    // overridden by the environment until their own turn.
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
