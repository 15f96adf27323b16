/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A tour of the library from C: the work directory, a debug log, the JSON parser and an id table.
 *
 *     cc core_tour.c -lvxcore && VX_WDIR=/srv/work ./a.out core_tour.log
 *
 * Exits with 0 when everything went as the comments say.
 */
#include <libvxcore/vxlb_get_norm_obj_id.h>
#include <libvxcore/vxlb_json_parser.h>
#include <libvxcore/vxlb_log.h>
#include <libvxcore/vxlb_util.h>

#include <stdio.h>

/* Trace everything that the modules of a mask line write into a log of the program's own. */
static int start_tracing(const char *log) {
    char message[200];
    vxlb_util_set_log_filename(log, NULL);
    if (set_vxlb_debug("LIB_DEBUG 2") != 0 ||
        set_vxlb_modulemask("MODULEMASK MISC", message) != 0) {
        return -1;
    }
    vxlb_debug_log_ex(VXLB_LEVEL_1, VXLB_MOD_MISC, __FILE__, __LINE__, __func__, "tour of %s",
                      g_vxlb_wdir);
    return 0;
}

/* Give every member of an object an id: 0, 1, 2 ... for new names, the old id for known ones. */
static int number_members(const char *text, NormObjKey *ids) {
    vxlb_json_t *json = vxlb_json_init_buffer(text, 0, 0, NULL);
    int members = 0;
    if (json == NULL || vxlb_json_open_obj(json) != 0) {
        vxlb_json_free(json);
        return -1;
    }
    while (vxlb_json_next_element(json) == 0) {
        const char *name = vxlb_json_element_name(json);
        int is_new = 0;
        unsigned int id = vxlb_get_or_gen_norm_id(ids, name, 0, &is_new);
        printf("%-10s id %u%s\n", name, id, is_new ? "" : ", seen before");
        members++;
    }
    vxlb_json_free(json);
    return members;
}

int main(int argc, char **argv) {
    NormObjKey ids;
    int members = 0;
    if (argc != 2) {
        fprintf(stderr, "usage: %s LOG\n", argv[0]);
        return 2;
    }
    vxlb_init_wdir_wpdir(); /* VX_WDIR, workspace admin, profile default */
    vxlb_set_ta_dir_ex1(g_vxlb_wdir, g_vx_workspace, g_vx_profile);
    printf("scenarios are below %s\n", g_vx_ta_dir);

    if (start_tracing(argv[1]) != 0 || vxlb_init_norm_id_table(&ids, 64) != 0) {
        return 1;
    }
    members = number_members("{\"name\": \"login\", \"users\": 20, \"name\": \"again\"}", &ids);
    if (members != 3 || vxlb_get_norm_id(&ids, "users", 5) != 1 ||
        vxlb_get_norm_id(&ids, "absent", 6) != VXLB_NORM_ID_ABSENT) {
        return 1;
    }
    vxlb_obj_hash_destroy(&ids);
    vxlb_close_log_fd();
    return 0;
}
