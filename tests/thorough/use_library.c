/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Use one module of the library, release everything, and print what it gave:
 *
 *     use_library MODULE [map] [trace]
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

static void show(const char *what, const char *text) {
    failures += text == NULL;
    printf("%s %s\n", what, text == NULL ? "-" : text);
}

static void show_number(const char *what, int64_t number) {
    failures += number < 0;
    printf("%s %ld\n", what, (long)number);
}

static void use_util(void) {
    char message[200];
    show_number("controller", set_vx_wdir_ex(message));
    show("date", vxlb_get_cur_date_time(message, 1) == NULL ? NULL : "given");
    show("error", vxlb_strerror(2));
}

static void use_alloc(void) {
    for (int i = 1; i < STEPS; i++) {
        char *block = NULL;
        VXLB_MALLOC(block, i, "block");
        VXLB_REALLOC(block, 9 * i, "block", i, -1);
        memset(block, 'x', 9 * (size_t)i);
        VXLB_FREE(block, "block", -1);
    }
    show_number("allocated", (int64_t)(g_c_mem_allocated - g_c_mem_freed));
}

static void use_pool(void) {
    vxlb_mp_handler pool;
    show_number("pool", -vxlb_mp_init(&pool, 64, 4, 4, 1));
    for (int i = 0; i < STEPS; i++) {
        node *slot = vxlb_mp_get_slot(&pool);
        show("slot", slot == NULL ? NULL : "taken");
        i % 3 == 0 ? vxlb_mp_free_slot(&pool, slot) : (void)0;
    }
    vxlb_mp_free_all_slots(&pool);
    vxlb_mp_destroy(&pool);
}

static void use_buffer(void) {
    bigbuf_t buffer;
    char content[64] = "";
    const int fd = open("document.json", O_RDONLY);
    show_number("buffer", vxlb_bigbuf_init_ex(&buffer, 16));
    for (int i = 0; i < STEPS; i++) {
        show_number("at", vxlb_bigbuf_copy_into_bigbuf(&buffer, "a text of some length", 0));
    }
    show("text", vxlb_bigbuf_get_value(&buffer, 22));
    show_number("file", vxlb_read_file_and_fill_buf_ex(fd, content, 60, 0));
    close(fd);
    vxlb_bigbuf_free(&buffer);
}

static void use_ids(void) {
    NormObjKey ids;
    char name[32];
    int id;
    show_number("table", vxlb_init_norm_id_table_ex(&ids, 8));
    for (int i = 0; i < STEPS; i++) {
        const int length = snprintf(name, sizeof name, "name %d", i);
        show_number("id", (int)vxlb_get_or_set_norm_id(&ids, name, length, &id));
        if (i % 4 == 3) {
            show_number("gone", vxlb_delete_norm_id_ex(&ids, name, length, &id));
            vxlb_add_id_in_free_list(&ids, id);
        }
    }
    show_number("again", (int)vxlb_get_set_or_gen_norm_id_ex(&ids, "new", 3, &id));
    show("name", vxlb_get_norm_table_data(&ids, 1));
    show_number("reset", vxlb_obj_hash_reset(&ids));
    free(ids.id_name);
    vxlb_obj_hash_destroy(&ids);
}

static void use_json(void) {
    vxlb_json_t *json = vxlb_json_init("document.json", 0, 16, NULL);
    int length;
    char *value = NULL;
    show("open", json == NULL ? NULL : "file");
    if (json != NULL && vxlb_json_open_obj(json) == 0 && vxlb_json_next_element(json) == 0) {
        value = vxlb_json_element_value_ex(json, &length, 1, 1, 1);
        show(vxlb_json_element_name(json), value);
    }
    VXLB_FREE(value, "value", -1);
    vxlb_json_free(json);
}

static void use_tree(void) {
    vxlb_json_t *json = vxlb_json_init("document.json", 0, 0, NULL);
    vxlb_jsont *root = json == NULL ? NULL : vxlb_json_to_jsont(json);
    char *values[9], path[] = "$.list[kind=1].id";
    json_expr_cond *compiled = NULL;
    show("text", root == NULL ? NULL : jsont_to_string(root, NULL, 0, 1, 2, 0));
    show_number("matches", vxlb_jsont_eval_expr_str(root, "$.list.id", values, 9));
    const int segments = vxlb_str_to_expr_cond(path, &compiled);
    show_number("matches", vxlb_jsont_eval_json_expr(root, compiled, segments, values, 9));
    VXLB_FREE(compiled, "compiled", -1);
    root == NULL ? (void)0 : vxlb_jsont_free(root);
    vxlb_json_free(json);
}

static void use_editor(void) {
    show("text", vxlb_modify_json_obj_depth1("{\"a\": 1, \"b\": \"2\"}", 1, "a", "x y", 1, NULL,
                                             NULL, 4095));
}

static void use_log(void) {
    char name[32];
    int fd = -1;
    snprintf(name, sizeof name, "log.%d", getpid());
    for (int i = 0; i < 9; i++) {
        show_number("log", vxlb_open_log(&fd, name, 64, "header\n"));
        show_number("size", write(fd, "a record that is long enough\n", 29));
    }
    vxlb_error_log_ex(VXLB_LEVEL_1, __FILE__, __LINE__, __func__, "1", "x", "error");
    close(fd);
    unlink(name);
    unlink(strcat(name, ".prev"));
}

static const struct {
    const char *name;
    void (*use)(void);
} modules[] = {{"util", use_util},     {"alloc", use_alloc},   {"pool", use_pool},
               {"buffer", use_buffer}, {"ids", use_ids},       {"json", use_json},
               {"tree", use_tree},     {"editor", use_editor}, {"log", use_log}};

int main(int argc, char **argv) {
    char dump[32], trace[32];
    snprintf(dump, sizeof dump, "dump.%d", getpid());
    snprintf(trace, sizeof trace, "trace.%d", getpid());
    const int maps = argc > 2 && strcmp(argv[2], "map") == 0;
    if (argc > 2 && strcmp(argv[argc - 1], "trace") == 0) {
        vxlb_util_set_log_filename(trace, trace);
        vxlb_util_set_debug_log_level(-1);
        vxlb_util_set_modulemask(~UINT64_C(0));
    }
    maps ? show_number("map", vxlb_mem_map_init()) : (void)0;
    for (size_t i = 0; i < sizeof modules / sizeof modules[0]; i++) {
        strcmp(argv[1], modules[i].name) == 0 ? modules[i].use() : (void)0;
    }
    if (maps) {
        show_number("dump", vxlb_mem_map_dump(dump));
        show_number("map", vxlb_mem_map_free());
        unlink(dump);
    }
    vxlb_close_log_fd();
    unlink(trace);
    return failures == 0 ? 0 : 3;
}
