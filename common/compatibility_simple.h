// Includes the whole compatibility layer, for the other programs of the suite.

#pragma once

#include "common/compatibility_simple/calls/calls.h"
#include "common/compatibility_simple/files/emptyfile.h"
#include "common/compatibility_simple/files/existence.h"
#include "common/compatibility_simple/files/metadata.h"
#include "common/compatibility_simple/files/overwrite.h"
#include "common/compatibility_simple/files/read.h"
#include "common/compatibility_simple/files/replace.h"
#include "common/compatibility_simple/lookups/lookups.h"
#include "common/compatibility_simple/network/addresses.h"
#include "common/compatibility_simple/network/localhost.h"
#include "common/compatibility_simple/network/resolver.h"
#include "common/compatibility_simple/network/routability.h"
#include "common/compatibility_simple/process/processhelpers.h"
#include "common/compatibility_simple/process/signals.h"
#include "common/compatibility_simple/process/stacklimit.h"
#include "common/compatibility_simple/system/hostname.h"
#include "common/compatibility_simple/system/pathexpansion.h"
#include "common/compatibility_simple/system/systemidentity.h"
#include "common/compatibility_simple/system/versionstrings.h"
