/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Use a part of the library, release everything, and print what it gave:
 *
 *     use_library text|containers|json [map] [trace]
 *
 * with the allocation map on, and every trace written. The status is 3 when a call reported failure.
 */
#include <libvxcore/vxlb_get_norm_obj_id.h>
#include <libvxcore/vxlb_json_parser.h>
#include <libvxcore/vxlb_log.h>
#include <libvxcore/vxlb_mem_map.h>
#include <libvxcore/vxlb_util.h>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

enum { STEPS = 60 };
static int failures;
static char scratch[64]; /* the name of a file of this process's own */

static void show(int64_t number, const char *text) {
    failures += number < 0 || text == NULL;
    printf("%ld %s\n", (long)number, text == NULL ? "-" : text);
}

static void use_text_and_log(void) {
    char message[200], *block = NULL;
    int fd = -1;
    show(set_vx_wdir_ex(message), vxlb_strerror(2));
    show(strlen(vxlb_get_cur_date_time(message, 1)), "date");
    for (int i = 1; i < STEPS; i++) {
        show(vxlb_open_log(&fd, scratch, 64, "header\n"), "log");
        show(write(fd, "a record\n", 9), "record");
        VXLB_REALLOC(block, 9 * i, "block", 9 * i - 9, -1);
    }
    vxlb_error_log_ex(VXLB_LEVEL_1, __FILE__, __LINE__, __func__, "1", "x", "error");
    VXLB_FREE(block, "block", -1);
    close(fd);
    unlink(scratch);
    unlink(strcat(scratch, ".prev"));
}

static void use_containers(void) {
    vxlb_mp_handler pool;
    bigbuf_t buffer;
    NormObjKey ids;
    const int fd = open("document.json", O_RDONLY);
    show(-vxlb_mp_init(&pool, 64, 4, 4, 1), "pool");
    show(vxlb_bigbuf_init_ex(&buffer, 16), "buffer");
    show(vxlb_init_norm_id_table_ex(&ids, 8), "ids");
    for (int i = 0; i < STEPS; i++) {
        char name[32];
        int length = snprintf(name, sizeof name, "name %d", i), id;
        show(vxlb_bigbuf_copy_into_bigbuf(&buffer, name, 0), name);
        show(vxlb_get_or_set_norm_id(&ids, name, length, &id), "id");
        vxlb_mp_get_slot(&pool);
        if (i % 4 == 3) {
            vxlb_mp_free_busy_head(&pool, vxlb_mp_get_busy_head(&pool));
            show(vxlb_delete_norm_id_ex(&ids, name, length, &id), "gone");
            vxlb_add_id_in_free_list(&ids, id);
        }
    }
    show(vxlb_read_file_and_fill_buf_ex(fd, scratch, 60, 0), "file");
    show(vxlb_obj_hash_reset(&ids), vxlb_bigbuf_get_value(&buffer, 7));
    close(fd);
    free(ids.id_name);
    vxlb_obj_hash_destroy(&ids);
    vxlb_bigbuf_free(&buffer);
    vxlb_mp_destroy(&pool);
}

static void use_json(void) {
    vxlb_json_t *moves = vxlb_json_init("document.json", 0, 16, NULL);
    vxlb_json_t *whole = vxlb_json_init("document.json", 0, 0, NULL);
    vxlb_jsont *root = whole == NULL ? NULL : vxlb_json_to_jsont(whole);
    char *values[9], path[] = "$.list[kind=1].id", *value = NULL;
    json_expr_cond *compiled = NULL;
    int length;
    failures += moves == NULL || whole == NULL;
    if (moves != NULL && vxlb_json_open_obj(moves) == 0 && vxlb_json_next_element(moves) == 0) {
        value = vxlb_json_element_value_ex(moves, &length, 1, 1, 1);
        show(length, value);
    }
    const int segments = vxlb_str_to_expr_cond(path, &compiled);
    show(vxlb_jsont_eval_expr_str(root, "$.list.id", values, 9), "matches");
    show(vxlb_jsont_eval_json_expr(root, compiled, segments, values, 9), "matches");
    show(0, vxlb_modify_json_obj_depth1("{\"a\": 1}", 1, "a", "x y", 1, NULL, NULL, 4095));
    if (root != NULL) {
        show(0, jsont_to_string(root, NULL, 0, 1, 2, 0));
        vxlb_jsont_free(root);
    }
    VXLB_FREE(value, "value", -1);
    VXLB_FREE(compiled, "compiled", -1);
    vxlb_json_free(moves);
    vxlb_json_free(whole);
}

int main(int argc, char **argv) {
    const int maps = argc > 2 && strcmp(argv[2], "map") == 0;
    char trace[32];
    snprintf(scratch, sizeof scratch, "scratch.%d", getpid());
    snprintf(trace, sizeof trace, "trace.%d", getpid());
    if (strcmp(argv[argc - 1], "trace") == 0) {
        vxlb_util_set_log_filename(trace, trace);
        vxlb_util_set_debug_log_level(-1);
        vxlb_util_set_modulemask(~UINT64_C(0));
    }
    maps ? show(vxlb_mem_map_init(), "map") : (void)0;
    argv[1][0] == 't' ? use_text_and_log() : argv[1][0] == 'c' ? use_containers() : use_json();
    if (maps) {
        show(vxlb_mem_map_dump(trace), "dump");
        show(vxlb_mem_map_free(), "map");
    }
    vxlb_close_log_fd();
    unlink(trace);
    return failures == 0 ? 0 : 3;
}
