#pragma once

#include "backend/userdata.h"

#include <optional>

class BackendOptions;

/// The session record of a back-end process. Its values come, in the order of precedence,
/// from the command-line options, the session file, the environment and the session file in
/// the installation's root directory. Options and environment also tell which session file
/// to read.
///
/// The front end of session N listens on port 4241 + N. If only one of the two is known,
/// the other is derived: the session from the ports 4242 to 4262, the port from any session.
class BackendUserData : public UserData
{
public:
    /// Fills a new record and returns isValid(). Creates no file and prints nothing. Ignores
    /// a port or session setting that is not a number, and a session file that cannot be
    /// read.
    bool load(const BackendOptions& options);

    /// The number in a port or session setting; none when it is not a decimal number.
    static std::optional<int> numberFrom(const QString& setting);
    /// The TCP port on which the front end of a session listens: 4241 + `session`.
    static unsigned int portOfSession(int session);

    /// The text of a session file with this record. Leaves out an unknown host, a port of 0
    /// and an empty cookie.
    [[nodiscard]] QString toXml() const;

    /// Writes the record to a session file, as replaceFile() does. For a null name, the file
    /// is the session's own file in the session directory, and the "latest" links then lead
    /// to it. Sets sessionFileName(). Returns false when the file cannot be written, and
    /// removes an old file of that name.
    [[nodiscard]] bool save(const QString& fileName);

private:
    void takeEnvironment();
    void takeOptions(const BackendOptions& options);
    // Takes the shared directory, and derives the session file unless a name is given.
    void chooseSessionFile(const BackendOptions& options);
    void setHosts(const QString& commaSeparated, Source source);
    void setExplicitPort(int number, Source source);
    // Derives port, session and shared directory from each other.
    void complete();
};
