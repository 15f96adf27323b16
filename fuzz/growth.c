/* SPDX-License-Identifier: Apache-2.0 */
/* time_tree FILE WINDOW: CPU seconds to build and free the file's tree, and whether there was one. */
#include <libvxcore/vxlb_json_parser.h>
#include <stdlib.h>
#include <time.h>

int main(int argc, char **argv) {
    vxlb_json_t *json = vxlb_json_init(argv[argc - 2], 32767, atoi(argv[argc - 1]), NULL);
    const clock_t start = clock();
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    if (tree != NULL) {
        vxlb_jsont_free(tree);
    }
    printf("%f %d\n", (double)(clock() - start) / CLOCKS_PER_SEC, tree != NULL);
    vxlb_json_free(json);
    return 0;
}
