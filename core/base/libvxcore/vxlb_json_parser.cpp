// SPDX-License-Identifier: Apache-2.0
//
// The streaming parser: input, moves and searches.
//
// A handle sees the input through a window. In file mode the window is filled again from the stream
// whenever the cursor has reached its end; in buffer mode it holds the whole text. A zero byte stands
// behind the valid bytes, so a scan may stop on it without testing bounds: at index buf_max it is the
// end of the window, anywhere before it is a byte that no JSON text holds.
//
// A move is one scan for its target text ("{", "}", a comma and a quote, ...), which counts only where
// the scan is outside strings and outside brackets opened since the move began. Everything else is
// passed over unread. Two stacks, indexed by depth, say what kind of container each level is and where
// it begins, so that a search can go back there.

#include <libvxcore/vxlb_json_parser.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include <libvxcore/vxlb_alloc.h>
#include <libvxcore/vxlb_util.h>

#include "vxlb_json_internal.h"
#include "vxlb_json_skip.h"

__thread FILE *vxlb_json_file_fp;

const char *const vxlb_json_error_string[VXLB_JSON_ERROR_CODES] = {
    "success",
    "unexpected end of file",
    "invalid format of file",
    "Invalid operation",
    "maximum depth reached",
    "object ended",
    "array ended",
    "Failed to read data from Input file",
    "Element Not Found",
    "Invalid Arguments",
};

static const char *const __target_byte_code[] = {"{", "}", "[", "]", ",\"", ",{"};
static_assert(sizeof __target_byte_code / sizeof *__target_byte_code == JSON_OPERATIONS);

// ---- Initialisation ----

// Bytes of a failure message, its zero included.
enum { ERROR_TEXT_SIZE = 1024 };

static void set_init_error(vxlb_json_error *error, const char *text) {
    if (error != nullptr) {
        snprintf(error->str, ERROR_TEXT_SIZE, "%s", text);
    }
}

// fstat that goes on after an interruption, as file servers may cause it.
static int stat_stream(int fd, struct stat *info) {
    int result;
    do {
        result = fstat(fd, info);
    } while (result == -1 && errno == EINTR);
    return result;
}

static FILE *take_preset_stream(int64_t *size, vxlb_json_error *error) {
    FILE *fp = vxlb_json_file_fp;
    vxlb_json_file_fp = nullptr;
    struct stat info = {};
    if (stat_stream(fileno(fp), &info) == -1) {
        if (error != nullptr) {
            snprintf(error->str, ERROR_TEXT_SIZE, "Failed to stat file for fp - %p, error: %s",
                     static_cast<void *>(fp), vxlb_strerror(errno));
        }
        fclose(fp);
        return nullptr;
    }
    *size = info.st_size;
    return fp;
}

// Whether a file may be read as JSON: opening a FIFO or a device could wait, or do something.
static bool is_readable_kind(const struct stat *info) {
    if (S_ISREG(info->st_mode)) {
        return true;
    }
    errno = S_ISDIR(info->st_mode) ? EISDIR : EINVAL;
    return false;
}

// The path is looked at before it is opened, so that nothing but a regular file ever is; and again
// afterwards, since it may have been replaced in between (O_NONBLOCK keeps that open from waiting).
static int open_regular_file(const char *path, int64_t *size) {
    struct stat info = {};
    if (stat(path, &info) == -1 || !is_readable_kind(&info)) {
        return -1;
    }
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd == -1) {
        return -1;
    }
    if (stat_stream(fd, &info) == -1 || !is_readable_kind(&info)) {
        const int reason = errno;
        close(fd);
        errno = reason;
        return -1;
    }
    *size = info.st_size;
    return fd;
}

static FILE *open_stream(const char *path, int64_t *size) {
    const int fd = open_regular_file(path, size);
    if (fd == -1) {
        return nullptr;
    }
    FILE *fp = fdopen(fd, "r");
    if (fp == nullptr) {
        const int reason = errno;
        close(fd);
        errno = reason;
        return nullptr;
    }
    // The window is the buffer: reads go straight into it.
    setvbuf(fp, nullptr, _IONBF, 0);
    return fp;
}

static FILE *open_input(const char *path, int64_t *size, vxlb_json_error *error) {
    if (vxlb_json_file_fp != nullptr) {
        return take_preset_stream(size, error);
    }
    FILE *fp = open_stream(path, size);
    if (fp == nullptr && error != nullptr) {
        snprintf(error->str, ERROR_TEXT_SIZE, "Failed to open input file '%s', error: %s", path,
                 vxlb_strerror(errno));
    }
    return fp;
}

static vxlb_json_t *new_handle(int buffer_length, int16_t max_depth) {
    vxlb_json_t *json = nullptr;
    VXLB_MALLOC(json, sizeof *json, "vxlb_json_t");
    json->fp = nullptr;
    json->buffer_length = buffer_length;
    const size_t window_size = static_cast<size_t>(buffer_length) + 1;
    VXLB_MALLOC(json->buffer, window_size, "root->buffer");
    json->max_depth = max_depth == 0 ? static_cast<int16_t>(JSON_DEFAULT_DEPTH) : max_depth;
    const auto levels = static_cast<size_t>(json->max_depth);
    VXLB_MALLOC(json->state, levels, "root->state");
    VXLB_MALLOC(json->os_offset, levels * sizeof *json->os_offset, "root->offset");
    memset(json->state, 0, levels);
    memset(json->os_offset, 0, levels * sizeof *json->os_offset);
    const size_t return_size = JSON_RETURN_BUF_SIZE + 1;
    VXLB_MALLOC(json->return_buf, return_size, "root->return_buf");
    json->return_buf_len = JSON_RETURN_BUF_SIZE;
    json->c_element_type = VXLB_JSON_OBJECT;
    memset(json->c_element_name, 0, sizeof json->c_element_name);
    json->cursor = 0;
    json->depth = 0;
    json->error = VXLB_JSON_SUCCESS;
    return json;
}

static vxlb_json_t *new_file_handle(FILE *fp, int64_t size, int16_t max_depth, int window) {
    vxlb_json_t *json = new_handle(window == 0 ? JSON_DEFAULT_WINDOW : window, max_depth);
    memset(json->buffer, 0, static_cast<size_t>(json->buffer_length) + 1);
    json->fp = fp;
    json->mode = FILE_MODE;
    json->buf_max = 0;
    json->offset = 0;
    json->f_size = size;
    return json;
}

static vxlb_json_t *new_buffer_handle(const char *text, int length, int16_t max_depth) {
    vxlb_json_t *json = new_handle(length, max_depth);
    json->mode = BUFFER_MODE;
    memcpy(json->buffer, text, static_cast<size_t>(length));
    json->buffer[length] = '\0';
    json->f_size = json->offset = json->buf_max = length;
    // A carriage return is not among the bytes passed over: behind one, the top is an object.
    if (json->buffer[strspn(json->buffer, " \t\n")] == '[') {
        json->c_element_type = VXLB_JSON_ARRAY;
        json->state[0] = IN_ARRAY;
    }
    return json;
}

vxlb_json_t *__vxlb_json_init(const char *filename_or_buffer, int16_t max_depth, int buf_length,
                              vxlb_json_error *error, unsigned char mode) {
    size_t length = 0;
    if (filename_or_buffer != nullptr && mode == BUFFER_MODE) {
        length = buf_length == 0 ? strlen(filename_or_buffer) : static_cast<size_t>(buf_length);
    }
    if (filename_or_buffer == nullptr || max_depth < 0 || buf_length < 0 || length > INT_MAX) {
        set_init_error(error, vxlb_json_error_string[VXLB_JSON_INVALID_ARGUMENTS]);
        return nullptr;
    }
    vxlb_json_t *json = nullptr;
    if (mode == BUFFER_MODE) {
        json = new_buffer_handle(filename_or_buffer, static_cast<int>(length), max_depth);
    } else {
        int64_t size = 0;
        FILE *fp = open_input(filename_or_buffer, &size, error);
        if (fp == nullptr) {
            return nullptr;
        }
        json = new_file_handle(fp, size, max_depth, buf_length);
    }
    set_init_error(error, vxlb_json_error_string[VXLB_JSON_SUCCESS]);
    return json;
}

vxlb_json_t *vxlb_json_init(const char *filename, int16_t max_depth, int proc_buf_length,
                            vxlb_json_error *error) {
    return __vxlb_json_init(filename, max_depth, proc_buf_length, error, FILE_MODE);
}

vxlb_json_t *vxlb_json_init_buffer(const char *buffer, int16_t max_depth, int buffer_len,
                                   vxlb_json_error *error) {
    return __vxlb_json_init(buffer, max_depth, buffer_len, error, BUFFER_MODE);
}

// Plain free throughout: the entries of the allocation map stay behind, as its readers know.
void vxlb_json_free(vxlb_json_t *json) {
    if (json == nullptr) {
        return;
    }
    if (json->fp != nullptr) {
        fclose(json->fp);
    }
    free(json->buffer);
    free(json->os_offset);
    free(json->state);
    free(json->return_buf);
    free(json);
}

// ---- Input ----

// Like fread, but an interrupted read goes on.
size_t __json_read(FILE *fp, char *to, size_t size) {
    size_t got = 0;
    for (;;) {
        errno = 0;
        got += fread(to + got, 1, size - got, fp);
        if (got == size || ferror(fp) == 0 || errno != EINTR) {
            return got;
        }
        clearerr(fp);
    }
}

int __json_refill(vxlb_json_t *json) {
    if (json->mode == BUFFER_MODE) {
        return json_fail(json, VXLB_JSON_UNEXPECTED_END);
    }
    const size_t got =
        __json_read(json->fp, json->buffer, static_cast<size_t>(json->buffer_length));
    if (got == 0) {
        return json_fail(json,
                         feof(json->fp) != 0 ? VXLB_JSON_UNEXPECTED_END : VXLB_JSON_READ_FAILED);
    }
    json->buffer[got] = '\0';
    json->cursor = 0;
    json->offset += static_cast<int64_t>(got);
    json->buf_max = static_cast<int32_t>(got); // at most buffer_length
    return 0;
}

// Forget the window; the next refill reads on from an input offset.
void __json_restart_at(vxlb_json_t *json, int64_t position) {
    json->offset = position;
    json->cursor = 0;
    json->buf_max = 0;
    json->buffer[0] = '\0';
}

// ---- Scanner ----

// The letters a to f in either case begin a literal, and so do t and n; True and N do not.
static consteval json_byte_table value_types() {
    json_byte_table types = {};
    for (unsigned char &type : types.of) {
        type = VXLB_JSON_NONE;
    }
    for (const char c : std::string_view("0123456789abcdefABCDEF.+-tn")) {
        types.of[static_cast<unsigned char>(c)] = VXLB_JSON_LITERAL;
    }
    types.of[static_cast<unsigned char>('{')] = VXLB_JSON_OBJECT;
    types.of[static_cast<unsigned char>('[')] = VXLB_JSON_ARRAY;
    types.of[static_cast<unsigned char>('"')] = VXLB_JSON_STRING;
    return types;
}

const json_byte_table __json_value_types = value_types();

enum verdict { FAILED = -1, MOVED = 0, GO_ON = 1 };

enum scan_state { SEEK_TARGET, READ_NAME, EXPECT_COLON, EXPECT_VALUE };

// The variables of one move.
struct scan {
    vxlb_json_t *json;
    int at;             // index of the byte being looked at
    const char *target; // what is still to be met of the target text
    int16_t braces;     // opened minus closed since the move began; both counts wrap
    int16_t brackets;
    bool in_string;
    bool escaped;    // the byte before was a backslash that escapes this one
    bool first_item; // next item, in an array whose type of items is not known yet
    unsigned char operation;
    unsigned char state;
    int name_length;
};

int __check_parse_operation(vxlb_json_t *json, unsigned char operation) {
    if (operation >= JSON_OPERATIONS) {
        return 0;
    }
    bool allowed = false;
    if (json->depth >= 0) {
        switch (operation) {
        case OPEN_OBJ:
            allowed = json->c_element_type == VXLB_JSON_OBJECT;
            break;
        case OPEN_ARRAY:
            allowed = json->c_element_type == VXLB_JSON_ARRAY;
            break;
        case CLOSE_OBJ:
        case NEXT_ELEMENT:
            allowed = json->state[json->depth] == IN_OBJECT;
            break;
        default:
            allowed = json->state[json->depth] == IN_ARRAY;
            break;
        }
    }
    return allowed ? 0 : json_fail(json, VXLB_JSON_BAD_OPERATION);
}

static const char *target_of(unsigned char operation, unsigned char type) {
    if (operation == NEXT_ELEMENT && type == VXLB_JSON_NONE) {
        return "\"";
    }
    if (operation == NEXT_ARRAY_ITEM) {
        switch (type) {
        case VXLB_JSON_NONE:
            return "{";
        case VXLB_JSON_ARRAY:
            return ",[";
        case VXLB_JSON_STRING:
            return ",\"";
        case VXLB_JSON_LITERAL:
            return ",";
        default:
            break;
        }
    }
    return __target_byte_code[operation];
}

static verdict open_container(scan *s) {
    vxlb_json_t *json = s->json;
    if (json->depth + 1 >= json->max_depth) {
        json->cursor = s->at;
        json_fail(json, VXLB_JSON_MAX_DEPTH);
        return FAILED;
    }
    json_enter(json, s->operation == OPEN_OBJ ? IN_OBJECT : IN_ARRAY, s->at + 1);
    return MOVED;
}

// From the comma behind a literal to the next item.
static verdict step_behind_comma(vxlb_json_t *json) {
    json->cursor++;
    for (;; json->cursor++) {
        if (json->cursor == json->buf_max && __json_refill(json) == -1) {
            return FAILED;
        }
        const char c = json->buffer[json->cursor];
        if (c == '\0') {
            json_fail(json, VXLB_JSON_BAD_FORMAT);
            return FAILED;
        }
        if (!is_json_space(c)) {
            return MOVED;
        }
    }
}

static verdict arrive_at_item(scan *s) {
    vxlb_json_t *json = s->json;
    json->cursor = s->at;
    if (json->c_element_type == VXLB_JSON_LITERAL) {
        return step_behind_comma(json);
    }
    if (json->c_element_type == VXLB_JSON_NONE) {
        json->c_element_type = VXLB_JSON_OBJECT;
    }
    return MOVED;
}

static verdict target_met(scan *s) {
    switch (s->operation) {
    case OPEN_OBJ:
    case OPEN_ARRAY:
        return open_container(s);
    case CLOSE_OBJ:
    case CLOSE_ARRAY:
        json_leave(s->json, s->at + 1);
        return MOVED;
    case NEXT_ARRAY_ITEM:
        return arrive_at_item(s);
    default:
        s->state = READ_NAME;
        return GO_ON;
    }
}

// Wraps at 16 bits: a count that runs over starts again from the other end.
static void count_bracket(scan *s, char c) {
    switch (c) {
    case '{':
        s->braces = static_cast<int16_t>(s->braces + 1);
        break;
    case '}':
        s->braces = static_cast<int16_t>(s->braces - 1);
        break;
    case '[':
        s->brackets = static_cast<int16_t>(s->brackets + 1);
        break;
    case ']':
        s->brackets = static_cast<int16_t>(s->brackets - 1);
        break;
    default:
        break;
    }
}

static unsigned char item_type(char c) {
    if (c == '"') {
        return VXLB_JSON_STRING;
    }
    return c == '[' ? VXLB_JSON_ARRAY : VXLB_JSON_LITERAL;
}

static verdict end_of_container(scan *s, int error) {
    s->json->cursor = s->at;
    json_fail(s->json, error);
    return FAILED;
}

static verdict seek_target(scan *s, char c) {
    if (c == *s->target && s->braces == 0 && s->brackets == 0 && !s->in_string &&
        *++s->target == '\0') {
        return target_met(s);
    }
    if (!s->escaped && !s->in_string) {
        count_bracket(s, c);
    }
    if (c == '"' && !s->escaped) {
        s->in_string = !s->in_string;
    }
    if (s->braces < 0 && s->operation == NEXT_ELEMENT) {
        return end_of_container(s, VXLB_JSON_OBJECT_ENDED);
    }
    if (s->brackets < 0 && s->operation == NEXT_ARRAY_ITEM) {
        return end_of_container(s, VXLB_JSON_ARRAY_ENDED);
    }
    if (s->first_item && c != ',' && c != '{' && !is_json_space(c)) {
        s->json->c_element_type = item_type(c);
        s->json->cursor = s->at;
        return MOVED;
    }
    return GO_ON;
}

// Escapes mean nothing here: a name ends at its first quote.
static verdict read_name(scan *s, char c) {
    char *name = s->json->c_element_name;
    if (c == '"') {
        name[s->name_length] = '\0';
        s->state = EXPECT_COLON;
    } else if (s->name_length < VXLB_JSON_NAME_SIZE - 1) {
        name[s->name_length++] = c;
    }
    return GO_ON;
}

static verdict expect_colon(scan *s, char c) {
    if (c == ':') {
        s->state = EXPECT_VALUE;
    } else if (!is_json_space(c)) {
        json_fail(s->json, VXLB_JSON_BAD_FORMAT);
        return FAILED;
    }
    return GO_ON;
}

static verdict expect_value(scan *s, char c) {
    if (is_json_space(c)) {
        return GO_ON;
    }
    const unsigned char type = __json_value_types.of[static_cast<unsigned char>(c)];
    if (type == VXLB_JSON_NONE) {
        json_fail(s->json, VXLB_JSON_BAD_FORMAT);
        return FAILED;
    }
    s->json->c_element_type = type;
    s->json->cursor = s->at;
    return MOVED;
}

static verdict look_at(scan *s, char c) {
    verdict result = GO_ON;
    switch (s->state) {
    case SEEK_TARGET:
        result = seek_target(s, c);
        break;
    case READ_NAME:
        result = read_name(s, c);
        break;
    case EXPECT_COLON:
        result = expect_colon(s, c);
        break;
    default:
        return expect_value(s, c);
    }
    s->escaped = c == '\\' && !s->escaped;
    return result;
}

// Index of the next byte that can change anything: many at a time inside strings and between brackets.
static int next_index(const scan *s) {
    const int next = s->at + 1;
    if (s->state != SEEK_TARGET || s->escaped || s->first_item) {
        return next;
    }
    const char *buffer = s->json->buffer;
    const char *end = buffer + s->json->buf_max;
    const char *found =
        s->in_string ? skip_string(buffer + next, end) : skip_structure(buffer + next, end);
    return static_cast<int>(found - buffer);
}

static verdict scan_window(scan *s) {
    const vxlb_json_t *json = s->json;
    s->at = json->cursor;
    while (s->at < json->buf_max) {
        const char c = json->buffer[s->at];
        if (c == '\0') {
            return end_of_container(s, VXLB_JSON_BAD_FORMAT);
        }
        const verdict result = look_at(s, c);
        if (result != GO_ON) {
            return result;
        }
        s->at = next_index(s);
    }
    return GO_ON;
}

int __parse_json(vxlb_json_t *json, unsigned char operation) {
    if (__check_parse_operation(json, operation) == -1) {
        return -1;
    }
    if (operation >= JSON_OPERATIONS) {
        return json_fail(json, VXLB_JSON_BAD_OPERATION);
    }
    scan s = {};
    s.json = json;
    s.operation = operation;
    s.target = target_of(operation, json->c_element_type);
    s.first_item = operation == NEXT_ARRAY_ITEM && json->c_element_type == VXLB_JSON_NONE;
    while (json->offset <= json->f_size) {
        if (json->cursor == json->buf_max && __json_refill(json) == -1) {
            return -1;
        }
        const verdict result = scan_window(&s);
        if (result != GO_ON) {
            return result;
        }
        json->cursor = s.at;
    }
    return -1; // the file has grown
}

// ---- Moves and searches ----

int vxlb_json_open_obj(vxlb_json_t *json) {
    return __parse_json(json, OPEN_OBJ);
}
int vxlb_json_close_obj(vxlb_json_t *json) {
    return __parse_json(json, CLOSE_OBJ);
}
int vxlb_json_open_array(vxlb_json_t *json) {
    return __parse_json(json, OPEN_ARRAY);
}
int vxlb_json_close_array(vxlb_json_t *json) {
    return __parse_json(json, CLOSE_ARRAY);
}
int vxlb_json_next_element(vxlb_json_t *json) {
    return __parse_json(json, NEXT_ELEMENT);
}
int vxlb_json_next_array_item(vxlb_json_t *json) {
    return __parse_json(json, NEXT_ARRAY_ITEM);
}

// Back to the first byte inside the current container. At depth 0 that is the document's first byte.
static int rewind_container(vxlb_json_t *json) {
    const int64_t start = json->os_offset[json->depth];
    if (json->mode == BUFFER_MODE) {
        json->cursor = static_cast<int32_t>(start); // below buffer_length
        return 0;
    }
    if (fseeko(json->fp, start, SEEK_SET) == -1) {
        return json_fail(json, VXLB_JSON_READ_FAILED);
    }
    __json_restart_at(json, start);
    return 0;
}

int vxlb_json_goto_element(vxlb_json_t *json, const char *element_name) {
    if (element_name == nullptr) {
        return json_fail(json, VXLB_JSON_INVALID_ARGUMENTS);
    }
    if (json->depth < 0 || json->state[json->depth] != IN_OBJECT) {
        return json_fail(json, VXLB_JSON_BAD_OPERATION);
    }
    if (rewind_container(json) == -1) {
        return -1;
    }
    json->c_element_type = VXLB_JSON_NONE;
    while (vxlb_json_next_element(json) == 0) {
        if (strcmp(json->c_element_name, element_name) == 0) {
            return 0;
        }
    }
    if (json->error == VXLB_JSON_OBJECT_ENDED) {
        json->error = VXLB_JSON_NOT_FOUND;
    }
    return -1;
}

// In buffer mode, a search outside an array fails only in its first move, with cursor and type changed.
int vxlb_json_goto_array_item(vxlb_json_t *json, int index) {
    if (index < 0) {
        return json_fail(json, VXLB_JSON_INVALID_ARGUMENTS);
    }
    if (json->depth < 0 || (json->mode == FILE_MODE && json->state[json->depth] != IN_ARRAY)) {
        return json_fail(json, VXLB_JSON_BAD_OPERATION);
    }
    if (rewind_container(json) == -1) {
        return -1;
    }
    json->c_element_type = VXLB_JSON_NONE;
    for (int64_t i = 0; i <= index; i++) {
        if (vxlb_json_next_array_item(json) == -1) {
            if (json->error == VXLB_JSON_ARRAY_ENDED) {
                json->error = VXLB_JSON_NOT_FOUND;
            }
            return -1;
        }
    }
    return 0;
}

char *vxlb_json_element_name(vxlb_json_t *json) {
    if (json->c_element_type == VXLB_JSON_NONE || json->depth < 0 ||
        json->state[json->depth] == IN_ARRAY) {
        json_fail(json, VXLB_JSON_BAD_OPERATION);
        return nullptr;
    }
    return json->c_element_name;
}
