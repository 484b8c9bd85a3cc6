// The whole compatibility layer, for the suite's other programs: what they ask of
// the host and the operating system.

#pragma once

#include "common/compatibility_simple/addresses.h"
#include "common/compatibility_simple/fileio.h"
#include "common/compatibility_simple/hostname.h"
#include "common/compatibility_simple/localhost.h"
#include "common/compatibility_simple/overwrite.h"
#include "common/compatibility_simple/pathexpansion.h"
#include "common/compatibility_simple/processhelpers.h"
#include "common/compatibility_simple/resolver.h"
#include "common/compatibility_simple/routability.h"
#include "common/compatibility_simple/stacklimit.h"
#include "common/compatibility_simple/systemidentity.h"
#include "common/compatibility_simple/versionstrings.h"
