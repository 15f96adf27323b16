// SPDX-License-Identifier: Apache-2.0
// Who asks and what that user may see. The one place that runs commands through the shell.
#pragma once

// Ask the suite whether a user may run this command; a refusal ends the process (255) without a
// word of our own. The privileged users "admin" and "maranth" see every workspace and profile.
void validate_user(const char *user_name);

// Load the user's project rows into the selection; the last row selects the workspace and profile.
// A row whose profile is "All" lifts every restriction and ends the reading.
void get_users_proj_sub_proj(const char *user);

// Find out the real user id of this process and its first two group ids.
void get_usr_uid_gid();

// End the process for want of memory.
[[noreturn]] void die_of_memory();
