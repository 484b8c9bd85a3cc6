// Why a path cannot be looked at.

#pragma once

#include <QString>

/// The first part of a path that stops a look-up, and why, as "/a/b does not exist" or
/// "/a may not be entered". Symbolic links are followed. Null when the path leads to
/// something.
QString obstacleOn(const QString& path);
