#pragma once

#include <QString>

/// Why a path cannot be looked up: the first part of it that fails, and the cause, as
/// "/a/b does not exist" or "/a may not be entered". Follows symbolic links. Null when
/// the path exists.
QString obstacleOn(const QString& path);
