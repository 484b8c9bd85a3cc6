#pragma once

#include <QString>

/// Whether a text contains '%' or '$' or begins with '~', so that expandVars() may change
/// it on some platform.
bool containsEnvVarOrTilde(const QString& text);

/// Replaces a leading "~" by the user's home directory, and a leading "~name" by that of
/// the named user. The name ends at the first slash or blank. Returns the text unchanged if
/// there is no such user.
QString tildeExpansion(const QString& text);

/// Expands a leading tilde and the references $NAME and ${NAME} to environment variables,
/// and removes white space at both ends. A reference to a variable that is not set stays.
/// Expands one variable after another in the order of the environment: a reference in a
/// value is expanded only if its variable comes later. Stops before the text would become
/// longer than 1048576 characters.
QString expandVars(const QString& text);
