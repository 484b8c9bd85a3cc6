// The compatibility layer: what the suite's programs ask of the host and the
// operating system.

#pragma once

#include "common/compatibility_simple/addresses.h"
#include "common/compatibility_simple/localhost.h"
#include "common/compatibility_simple/pathexpansion.h"
#include "common/compatibility_simple/processhelpers.h"
#include "common/compatibility_simple/resolver.h"
#include "common/compatibility_simple/routability.h"
#include "common/compatibility_simple/stacklimit.h"
#include "common/compatibility_simple/systemidentity.h"
#include "common/compatibility_simple/versionstrings.h"
