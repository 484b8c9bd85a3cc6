#pragma once

#include <QString>

/// Why a path cannot be looked up: the first part of it that fails, and the cause, as
/// "/a/b does not exist" or "no permission to search /a". Follows symbolic links. Null when
/// the path exists.
QString obstacleOn(const QString& path);
