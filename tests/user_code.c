/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The macros as programs use them, compiled as C and as C++ with every warning on: any object
 * pointer, sizes of any integer type, statements without braces, traces with and without arguments.
 */
#include <libvxcore/vxlb_alloc.h>

typedef struct Record {
    int number;
    unsigned three : 3;
} Record;

int use_macros(Record *given, short small, unsigned long large, const char *label);

int use_macros(Record *given, short small, unsigned long large, const char *label) {
    Record *record;
    const char *name;
    void *raw;
    volatile int *number;
    const int i = 3;

    VXLB_MALLOC(record, sizeof(Record), "record");
    VXLB_MALLOC(name, small, "name");
    VXLB_MALLOC(raw, large, label);
    VXLB_MALLOC(number, given->three, "number");
    VXLB_REALLOC(record, large, "record", small, -1);
    VXLB_REALLOC(name, small, "name", large, -1);
    VXLB_REALLOC(number, (unsigned char)5, "number", 3, i);
    vxlb_debug_log_ex(VXLB_LEVEL_4, VXLB_MOD_API, __FILE__, __LINE__, __func__, "no arguments");
    if (i > 0)
        vxlb_debug_log_ex(VXLB_LEVEL_2, 0x20, __FILE__, __LINE__, __func__, "%d %s", i, label);
    else
        VXLB_FREE(raw, "raw", -1);
    VXLB_FREE(record, "record", -1);
    VXLB_FREE(name, "name", -1);
    VXLB_FREE(number, "number", -1);
    VXLB_FREE(raw, "raw", -1);
    return i;
}
