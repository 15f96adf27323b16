// SPDX-License-Identifier: Apache-2.0
// Names of users and groups, each looked up once.
#pragma once

#include <sys/types.h>

#include <string_view>

// The name of an id, or "UNKNOWN" for one that has none. Lives until the process ends.
std::string_view get_scenario_owner(uid_t user_id);
std::string_view get_scenario_group(gid_t group_id);
