/* SPDX-License-Identifier: Apache-2.0 */
/* Print the tags of a scenario file, one a line: tags FILE */
#include <libvxcore/vxlb_json_parser.h>

#include <stdio.h>

int main(int argc, char **argv) {
    char *tags[64];
    vxlb_json_error why = {"usage: tags FILE"};
    vxlb_json_t *json = argc == 2 ? vxlb_json_init(argv[1], 0, 0, &why) : NULL;
    if (json == NULL) {
        fprintf(stderr, "%s\n", why.str);
        return 1;
    }
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    vxlb_json_free(json); /* the tree stands by itself */
    int count = tree ? vxlb_jsont_eval_expr_str(tree, "$.scenario.TAGS._G", tags, 64) : 0;
    for (int i = 0; i < count; i++) {
        puts(tags[i]);
    }
    if (tree != NULL) {
        vxlb_jsont_free(tree);
    }
    return 0;
}
