/* SPDX-License-Identifier: Apache-2.0 */
/* Number names in the order they are first met, and tell the names back: name_ids NAME... */
#include <libvxcore/vxlb_get_norm_obj_id.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(int argc, char **argv) {
    NormObjKey ids;
    if (vxlb_init_norm_id_table_ex(&ids, 1024) != 0) {
        return 1;
    }
    for (int i = 1; i < argc; i++) {
        int new_name;
        unsigned int id = vxlb_get_or_set_norm_id(&ids, argv[i], (int)strlen(argv[i]), &new_name);
        printf("%s has id %u%s\n", argv[i], id, new_name ? "" : ", as before");
    }
    for (int id = 0; id <= ids.prev_id; id++) {
        printf("%d is %s\n", id, vxlb_get_norm_table_data(&ids, id));
    }
    free(ids.id_name); /* destroy leaves the reverse index to its user */
    vxlb_obj_hash_destroy(&ids);
    return 0;
}
