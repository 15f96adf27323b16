// SPDX-License-Identifier: Apache-2.0
// The table: recorded paths to rows.
#pragma once

// Print the first line of the table.
void print_header();

// Print a row for every recorded path that is listed, and the totals line where it is asked for.
void print_scenarios();
