// SPDX-License-Identifier: Apache-2.0
// Names reach the shell as one word each (vxlb_shell_word), in commands that are as long as they
// need to be: a cut name would be another user.
#include "user_access.h"

#include "output.h"
#include "selection.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

constexpr int REFUSED_STATUS = 255;
constexpr size_t LINE_SIZE = 512;
constexpr size_t MAX_FIELD_LENGTH = 255;
constexpr int MAX_FIELDS = 10;
constexpr int ROW_FIELDS = 4; // workspace, profile, project, sub-project; the rest is not ours

// The fields of a row, in order.
enum { WORKSPACE, PROFILE, PROJECT, SUB_PROJECT };

struct release_text {
    void operator()(char *text) const { free(text); }
};
using owned_text = std::unique_ptr<char, release_text>;

owned_text command_with_name(std::string_view before, const char *name, std::string_view after) {
    const size_t word = vxlb_shell_word(name, "", nullptr, 0);
    const size_t size = before.size() + word + after.size() + 1;
    char *command = static_cast<char *>(malloc(size));
    if (command == nullptr) {
        die_of_memory();
    }
    memcpy(command, before.data(), before.size());
    vxlb_shell_word(name, "", command + before.size(), word + 1);
    memcpy(command + before.size() + word, after.data(), after.size());
    command[size - 1] = '\0';
    return owned_text(command);
}

// The next byte, or EOF. A read that a signal interrupts goes on.
int next_byte(FILE *in) {
    int c;
    while ((c = getc_unlocked(in)) == EOF && ferror(in) != 0 && errno == EINTR) {
        clearerr(in);
    }
    return c;
}

// Read one line without its newline. What does not fit is passed over. False at the end of input.
bool read_line(FILE *in, std::array<char, LINE_SIZE> *line) {
    size_t used = 0;
    int c = next_byte(in);
    if (c == EOF) {
        return false;
    }
    for (; c != EOF && c != '\n'; c = next_byte(in)) {
        if (used < line->size() - 1) {
            (*line)[used++] = static_cast<char>(c);
        }
    }
    (*line)[used] = '\0';
    return true;
}

const char *copy_of_field(const char *field) {
    const char *copy = strdup(field);
    if (copy == nullptr) {
        die_of_memory();
    }
    return copy;
}

bool is_row_usable(char *const *fields, int count) {
    if (count < ROW_FIELDS) {
        return false;
    }
    for (int i = 0; i < count; i++) {
        if (strlen(fields[i]) > MAX_FIELD_LENGTH) {
            return false;
        }
    }
    return true;
}

// Every row selects its workspace and profile, so that the last one stays selected.
void take_row(char *const *fields, int row) {
    const char *workspace = fields[WORKSPACE];
    if (strcmp(workspace, "maranth") == 0) {
        workspace = VXLB_DEFAULT_WORKSPACE;
    }
    vxlb_set_ta_dir_ex1(g_vxlb_wdir, workspace, fields[PROFILE]);
    usr_project[row] = copy_of_field(fields[PROJECT]);
    usr_sub_project[row] =
        strcmp(fields[SUB_PROJECT], "All") == 0 ? "*" : copy_of_field(fields[SUB_PROJECT]);
}

enum class rows_end { END_OF_INPUT, ALL_PROFILES, TOO_MANY };

rows_end read_rows(FILE *in, int *rows) {
    std::array<char, LINE_SIZE> line;
    char *fields[MAX_FIELDS];
    while (read_line(in, &line)) {
        const int count = get_tokens(line.data(), fields, "|", MAX_FIELDS);
        const bool is_for_all = count > PROFILE && strcmp(fields[PROFILE], "All") == 0;
        if (!is_for_all && !is_row_usable(fields, count)) {
            continue;
        }
        if (*rows == MAX_PROJECTS) {
            report_error("Warning: vxu_show_scenarios: project rows beyond %d are ignored\n",
                         MAX_PROJECTS);
            return rows_end::TOO_MANY;
        }
        if (is_for_all) {
            return rows_end::ALL_PROFILES;
        }
        take_row(fields, (*rows)++);
    }
    return rows_end::END_OF_INPUT;
}

// The number that a text begins with behind white space; *text moves behind it. 0 without one.
gid_t take_gid(const char **text) {
    char *end;
    const gid_t gid = static_cast<gid_t>(strtol(*text, &end, 10));
    *text = end;
    return gid;
}

// call: the system call that failed.
[[noreturn]] void die_of_projects(const char *user, const char *call, int reason) {
    out_text("Error: 'vxu_show_project -u ");
    out_name(user);
    out_text("' failed.\n");
    die(REFUSED_STATUS, "%s: %s\n", call, strerror(reason));
}

} // namespace

void die_of_memory() {
    die(1, "Error: Internal error, msg - %s\n", strerror(ENOMEM));
}

void validate_user(const char *user_name) {
    // The check command speaks for itself.
    const owned_text command =
        command_with_name("vxu_check_user ", user_name, " vxu_show_scenarios");
    if (system(command.get()) != 0) {
        finish(REFUSED_STATUS);
    }
    if (all == 0 && (strcmp(user_name, "admin") == 0 || strcmp(user_name, "maranth") == 0)) {
        all = 1;
    }
}

void get_users_proj_sub_proj(const char *user) {
    // -a: a name that is no text in the caller's locale must not end the rows.
    const owned_text command =
        command_with_name("vxu_show_projects -u ", user, "| grep -a -v \"^User Name\"");
    FILE *in = popen(command.get(), "re");
    if (in == nullptr) {
        die_of_projects(user, "popen", errno);
    }
    int rows = 0;
    const rows_end end = read_rows(in, &rows);
    if (ferror(in) != 0) {
        // Rows that are missing must not pass for a user without restrictions.
        die_of_projects(user, "read", errno);
    }
    if (end == rows_end::ALL_PROFILES) {
        all = 1;
    } else {
        num_projs = rows;
    }
    if (end == rows_end::END_OF_INPUT) {
        pclose(in); // else it stays open: closing would wait for a helper that has more to say
    }
}

void get_usr_uid_gid() {
    usr_id = getuid();
    // Set, it makes the id command refuse options behind its operand.
    unsetenv("POSIXLY_CORRECT");
    const struct passwd *user = getpwuid(usr_id);
    if (user == nullptr) {
        report_error("Error: Can not get groups id.\n");
        return;
    }
    const owned_text command = command_with_name("id ", user->pw_name, " -G");
    FILE *in = popen(command.get(), "re");
    if (in == nullptr) {
        const int reason = errno;
        report_error("Error: Can not get groups id.\n");
        report_error("popen: %s\n", strerror(reason));
        return;
    }
    std::array<char, LINE_SIZE> line;
    if (read_line(in, &line)) {
        const char *text = line.data();
        usr_primary_grp_id = take_gid(&text);
        usr_secondry_grp_id = take_gid(&text);
    }
    // The stream stays open: closing it would wait for a command that lives on.
}
