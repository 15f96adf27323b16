// SPDX-License-Identifier: Apache-2.0
// Which entries of the work directory are scenarios that this run may list.
#pragma once

#include "path_list.h"

// The scenario files found. Written by scan_scen_list.
extern path_list scen_list;

// Walk the tree and fill scen_list. Ends the process (1) when the walk can't begin or runs out of
// descriptors or memory.
void scan_scen_list();
