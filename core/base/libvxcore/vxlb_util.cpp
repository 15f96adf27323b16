// SPDX-License-Identifier: Apache-2.0
// Tokenizers, date-time text, per-thread error texts and shell words.
//
// Nothing here stands on another module. Both tokenizers cut the caller's text in place; the only
// state is one buffer a thread for each of the two error texts.
#include <libvxcore/vxlb_util.h>

#include <csignal>
#include <cstdio>
#include <cstring>

namespace {

constexpr size_t STRERROR_SIZE = 256;
constexpr size_t ERROR_LENGTH = 256;

__thread char g_vxlb_strerror_buf[STRERROR_SIZE];
__thread char g_vxlb_err_buf[ERROR_LENGTH + 1];

// Cut a quoted field behind its closing quote. `field` stands behind the opening quote. Returns
// where the scan for the next delimiter begins; without a closing quote that is the field itself.
char *cut_quoted_field(char *field) {
    // The closing quote is looked for from the field's second character on, so that a field may
    // begin with a quote of its own.
    char *quote = *field == '\0' ? nullptr : strchr(field + 1, '"');
    if (quote == nullptr) {
        return field;
    }
    if (quote[1] == '\0') {
        return quote + 1;
    }
    quote[1] = '\0';
    return quote + 2;
}

// Cut at the next delimiter at or behind `from`. Returns the start of the next field, or null when
// there is no further delimiter.
char *cut_at_delimiter(char *from, const char *token, size_t token_len) {
    char *found = token_len == 0 ? nullptr : strstr(from, token);
    if (found == nullptr) {
        return nullptr;
    }
    *found = '\0';
    found += token_len;
    while (strncmp(found, token, token_len) == 0) {
        found += token_len;
    }
    return found;
}

} // namespace

int get_tokens(char *read_buf, char **fields, const char *token, int max_flds) {
    if (read_buf == nullptr) {
        return 0;
    }
    int count = 0;
    char *rest = nullptr;
    for (char *field = strtok_r(read_buf, token, &rest); field != nullptr;
         field = strtok_r(nullptr, token, &rest)) {
        if (count >= max_flds) {
            return max_flds;
        }
        fields[count++] = field;
    }
    return count;
}

int vxlb_get_tokens(char *read_buf, char **fields, const char *token, int max_flds) {
    if (read_buf == nullptr) {
        return 0;
    }
    const size_t token_len = token == nullptr ? 0 : strlen(token);
    int count = 0;
    for (char *next = read_buf; next != nullptr;) {
        char *field = next;
        char *from = next;
        if (*field == '"') {
            field += 1;
            from = cut_quoted_field(field);
        }
        next = cut_at_delimiter(from, token, token_len);
        if (count >= max_flds) {
            return max_flds;
        }
        fields[count++] = field;
    }
    return count;
}

int vx_is_numeric(const char *str) {
    return str != nullptr && str[strspn(str, "0123456789")] == '\0';
}

struct tm *vxlb_localtime(const time_t *tloc, struct tm *lt, int need_to_block_signal) {
    if (need_to_block_signal != 1) {
        return localtime_r(tloc, lt);
    }
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);
    struct tm *result = localtime_r(tloc, lt);
    // Not back to the mask of before: long-running programs count on every signal being
    // deliverable again once a date has been taken.
    sigprocmask(SIG_UNBLOCK, &all, nullptr);
    return result;
}

char *vxlb_get_cur_date_time(char *time_string, int need_to_block_signal) {
    const time_t now = time(nullptr);
    struct tm tm;
    if (vxlb_localtime(&now, &tm, need_to_block_signal) == nullptr) {
        vxlb_copy_text(time_string, VXLB_DATE_TIME_SIZE, "Error|Error");
        return time_string;
    }
    snprintf(time_string, VXLB_DATE_TIME_SIZE, "%02d/%02d/%02ld %02d:%02d:%02d", tm.tm_mon + 1,
             tm.tm_mday, (tm.tm_year + 1900L) % 2000, tm.tm_hour, tm.tm_min, tm.tm_sec);
    return time_string;
}

char *vxlb_strerror(int num) {
    // The text need not lie in the buffer that strerror_r was given.
    char own[STRERROR_SIZE];
    vxlb_copy_text(g_vxlb_strerror_buf, sizeof g_vxlb_strerror_buf,
                   strerror_r(num, own, sizeof own));
    return g_vxlb_strerror_buf;
}

void vxlb_set_error(const char *error) {
    if (error != nullptr) {
        vxlb_copy_text(g_vxlb_err_buf, sizeof g_vxlb_err_buf, error);
    }
}

char *vxlb_get_error(void) {
    return g_vxlb_err_buf;
}

namespace {

// Writes bytes while there is room and counts them all.
struct bounded_text {
    char *at;
    size_t size; // with the NUL
    size_t length = 0;
};

void append(bounded_text *text, const char *bytes, size_t len) {
    for (size_t i = 0; i < len; i++, text->length++) {
        if (text->length + 1 < text->size) {
            text->at[text->length] = bytes[i];
        }
    }
}

void append_quoted(bounded_text *text, char c) {
    // A quote can't stand inside single quotes: close them, escape it, open them again.
    static const char escaped_quote[] = "'\\''";
    if (c == '\'') {
        append(text, escaped_quote, sizeof escaped_quote - 1);
    } else {
        append(text, &c, 1);
    }
}

bool is_plain_word(const char *text, const char *also_plain) {
    static const char plain[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                "0123456789_.@+-";
    size_t len = 0;
    for (size_t more = 1; more != 0; len += more) {
        more = strspn(text + len, plain);
        more += strspn(text + len + more, also_plain);
    }
    return text[len] == '\0';
}

} // namespace

size_t vxlb_shell_word(const char *text, const char *also_plain, char *word, size_t size) {
    bounded_text out = {word, size};
    if (is_plain_word(text, also_plain)) {
        append(&out, text, strlen(text));
    } else {
        append(&out, "'", 1);
        for (const char *c = text; *c != '\0'; c++) {
            append_quoted(&out, *c);
        }
        append(&out, "'", 1);
    }
    if (size > 0) {
        word[out.length < size ? out.length : size - 1] = '\0';
    }
    return out.length;
}
