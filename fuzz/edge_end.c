// SPDX-License-Identifier: Apache-2.0
// Linked behind the program whose variables are put back; see run_again.h.
__attribute__((aligned(64))) char vx_data_end[64] = {1};
__attribute__((aligned(64))) char vx_bss_end[64];
