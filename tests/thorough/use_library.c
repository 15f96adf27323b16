/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Use the modules of the library that the examples leave out, with the allocation map on and every
 * trace written; print what they give, and release everything. The status is 3 when a call failed.
 */
#include <libvxcore/vxlb_json_parser.h>
#include <libvxcore/vxlb_log.h>
#include <libvxcore/vxlb_mem_map.h>
#include <libvxcore/vxlb_util.h>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static int failures;

static void show(int64_t number, const char *text) {
    failures += number < 0 || text == NULL;
    printf("%ld %s\n", (long)number, text == NULL ? "-" : text);
}

static void use_containers(void) {
    vxlb_mp_handler pool;
    NormObjKey ids, many_ids;
    char content[64];
    const int fd = open("document.json", O_RDONLY);
    show(-vxlb_mp_init(&pool, 64, 4, 4, 1), "pool");
    show(vxlb_init_norm_id_table_v2(&ids, 8, 16), "ids");
    show(vxlb_init_norm_id_table(&many_ids, 1 << 18), "many ids");
    for (int i = 0, id; i < 60; i++) {
        show(snprintf(content, sizeof content, "name %d", i), "name");
        show(vxlb_get_or_gen_norm_id(&ids, content, 0, &id), "id");
        vxlb_mp_get_slot(&pool);
        if (i % 4 == 3) {
            vxlb_mp_free_busy_head(&pool, vxlb_mp_get_busy_head(&pool));
            show(vxlb_delete_norm_id_ex(&ids, content, 6 + (i > 9), &id), "gone");
            vxlb_add_id_in_free_list(&ids, id);
        }
    }
    show(vxlb_read_file_and_fill_buf_ex(fd, content, 60, 0), "file");
    show(vxlb_obj_hash_reset(&ids), vxlb_bigbuf_get_value(&ids.bigbuf, 7));
    close(fd);
    vxlb_obj_hash_destroy(&many_ids);
    vxlb_obj_hash_destroy(&ids);
    vxlb_mp_destroy(&pool);
}

static void use_json(void) {
    vxlb_json_t *json = vxlb_json_init("document.json", 0, 16, NULL);
    char *value = NULL;
    int length = -1;
    if (json != NULL && vxlb_json_open_obj(json) == 0 && vxlb_json_next_element(json) == 0) {
        value = vxlb_json_element_value_ex(json, &length, 1, 1, 1);
    }
    show(length, value);
    show(0, vxlb_modify_json_obj_depth1("{\"a\": 1}", 1, "a", "x y", 1, NULL, NULL, 4095));
    VXLB_FREE(value, "value", -1);
    vxlb_json_free(json);
}

int main(int argc, char **argv) {
    char message[200], trace[32];
    snprintf(trace, sizeof trace, "trace.%d", getpid());
    vxlb_util_set_log_filename(trace, trace);
    vxlb_util_set_debug_log_level(argc > 1 ? 0 : -1);
    vxlb_util_set_modulemask(~UINT64_C(0));
    show(vxlb_mem_map_init(), vxlb_strerror(2));
    show(set_vx_wdir_ex(message), vxlb_get_cur_date_time(message, 1) == NULL ? NULL : "date");
    use_containers();
    use_json();
    show(vxlb_mem_map_dump("/dev/null"), "dump");
    show(vxlb_mem_map_free(), "map");
    vxlb_close_log_fd();
    unlink(trace);
    failures += fflush(stdout) != 0;
    return failures == 0 ? 0 : 3;
}
