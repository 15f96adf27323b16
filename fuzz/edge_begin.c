// SPDX-License-Identifier: Apache-2.0
// Linked before the program whose variables are put back; see run_again.h.
__attribute__((aligned(64))) char vx_data_begin[64] = {1};
__attribute__((aligned(64))) char vx_bss_begin[64];
