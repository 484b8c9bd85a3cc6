// The compatibility layer: what the suite's programs ask of the host and the
// operating system.

#pragma once

#include "common/compatibility_simple/pathexpansion.h"
#include "common/compatibility_simple/processhelpers.h"
