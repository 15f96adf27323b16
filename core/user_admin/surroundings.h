// SPDX-License-Identifier: Apache-2.0
// What a process inherits and can't trust.
#pragma once

// Give descriptors 0, 1 and 2 something to stand for, before anything else is opened: a file
// opened in their place would be written to by accident. A missing one gets an end that refuses its
// use, so that lost output is still noticed.
void make_standard_descriptors_valid();

// Keep descriptors that the parent left open from reaching the helper commands.
void keep_descriptors_from_children();

// Let children be waited for, whatever the parent did with SIGCHLD.
void reset_child_signal();
