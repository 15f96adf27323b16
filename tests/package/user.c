/* SPDX-License-Identifier: Apache-2.0 */
/* A program on the installed library, in C and in C++: it reads a tag of a JSON text. */
#include <libvxcore/vxlb_json_parser.h>
#include <libvxcore/vxlb_util.h>
#include <stdio.h>

int main(void) {
    char text[] = "{\"tags\": [\"smoke\", \"peak\"]}";
    char *tags[4];
    vxlb_json_t *json = vxlb_json_init_buffer(text, 0, 0, NULL);
    vxlb_jsont *tree = vxlb_json_to_jsont(json);
    int count = tree ? vxlb_jsont_eval_expr_str(tree, "$.tags[1]", tags, 4) : 0;
    return printf("%s\n", count == 1 && vx_is_numeric("12") ? tags[0] : "?") < 0;
}
