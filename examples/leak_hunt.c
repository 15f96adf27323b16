/* SPDX-License-Identifier: Apache-2.0 */
/* Find the blocks that a piece of a program forgets to release: leak_hunt DUMP */
#include <libvxcore/vxlb_mem_map.h>

#include <stdio.h>

/* Every third request takes a way out that forgets its reply. */
static void serve(int request) {
    char *reply;
    VXLB_MALLOC(reply, 100 + request, "reply");
    if (request % 3 == 2) {
        return;
    }
    VXLB_FREE(reply, "reply", -1);
}

int main(int argc, char **argv) {
    char *last;
    if (argc != 2) {
        fprintf(stderr, "usage: leak_hunt DUMP\n");
        return 1;
    }
    vxlb_mem_map_init();
    for (int request = 0; request < 6; request++) {
        serve(request);
    }
    VXLB_MALLOC(last, 1, "last"); /* the newest block is the one that a dump leaves out */
    vxlb_mem_map_dump(argv[1]);
    VXLB_FREE(last, "last", -1);
    vxlb_mem_map_free();
    return 0;
}
