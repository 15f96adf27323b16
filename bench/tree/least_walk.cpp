// SPDX-License-Identifier: Apache-2.0
// The least work that prints the command's table of a plain tree: no links, no mounts, nobody who
// changes it meanwhile, entry types in the directories, no odd names.
//
//     bare_walk WORK_DIR [WORD]
//
// Prints what `vxu_show_scenarios -A` prints, or `-A -T WORD` with a word. How the word is looked
// for is chosen when this is compiled: the file's bytes are searched for it, or with one of
// WITH_RAPIDJSON and WITH_CJSON the file is parsed and its tags are compared.
//
// Every directory is opened by its parent's descriptor and read with getdents64 to its end; there is
// one fstatat a row. Whether a directory stands beside a flat file is told by the entries read with it,
// for no directory has more of them than the buffer holds.
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <span>
#include <string_view>

#if defined(WITH_RAPIDJSON)
#    include <rapidjson/document.h>
#elif defined(WITH_CJSON)
#    include <cjson/cJSON.h>
#endif

namespace {

enum { WORKSPACE = 1, PROFILE, MARANTH, PROJECT, SUB_PROJECT, SCENARIOS, ENTRY, INSIDE };

constexpr size_t DIRECTORY_BUFFER = size_t{32} * 1024;
constexpr size_t OUTPUT_BUFFER = size_t{64} * 1024;
constexpr size_t FILE_BUFFER = size_t{1024} * 1024;

char g_entries[INSIDE][DIRECTORY_BUFFER];
char g_output[OUTPUT_BUFFER];
size_t g_used;
char g_file[FILE_BUFFER];
const char *g_word;
std::string_view g_names[INSIDE + 1]; // of the path to the entry at hand

void flush() {
    for (size_t done = 0; done < g_used;) {
        const ssize_t written = write(STDOUT_FILENO, g_output + done, g_used - done);
        if (written < 0) {
            exit(1);
        }
        done += static_cast<size_t>(written);
    }
    g_used = 0;
}

void put(std::string_view text) {
    if (g_used + text.size() > OUTPUT_BUFFER) {
        flush();
    }
    memcpy(g_output + g_used, text.data(), text.size());
    g_used += text.size();
}

// --- columns -------------------------------------------------------------------------------------

struct known_name {
    unsigned id;
    char name[64];
    bool is_known;
};

std::string_view owner(uid_t id) {
    static known_name last;
    if (!last.is_known || last.id != id) {
        const struct passwd *user = getpwuid(id);
        snprintf(last.name, sizeof last.name, "%s", user == nullptr ? "UNKNOWN" : user->pw_name);
        last.id = id;
        last.is_known = true;
    }
    return last.name;
}

std::string_view group(gid_t id) {
    static known_name last;
    if (!last.is_known || last.id != id) {
        const struct group *entry = getgrgid(id);
        snprintf(last.name, sizeof last.name, "%s", entry == nullptr ? "UNKNOWN" : entry->gr_name);
        last.id = id;
        last.is_known = true;
    }
    return last.name;
}

std::string_view permission(const struct stat &file) {
    static const uid_t caller = getuid();
    static const gid_t callers_group = getgid();
    if (caller == 0) {
        return "RWD";
    }
    const bool is_owner = file.st_uid == caller, is_group = file.st_gid == callers_group;
    const mode_t read = is_owner ? S_IRUSR : is_group ? S_IRGRP : S_IROTH;
    const mode_t write = is_owner || is_group ? S_IWUSR : S_IWOTH;
    return (file.st_mode & read) != 0    ? (file.st_mode & write) != 0 ? "RWD" : "R--"
           : (file.st_mode & write) != 0 ? "-WD"
                                         : "---";
}

void put_two_digits(int number, char behind) {
    const char text[] = {static_cast<char>('0' + number / 10), static_cast<char>('0' + number % 10),
                         behind};
    put({text, sizeof text});
}

void put_date(time_t when) {
    struct tm tm;
    localtime_r(&when, &tm);
    put_two_digits(tm.tm_mon + 1, '/');
    put_two_digits(tm.tm_mday, '/');
    const int year = 1900 + tm.tm_year;
    put_two_digits(year / 100, static_cast<char>('0' + year % 100 / 10));
    put_two_digits(year % 10 * 10, ' ');
    g_output[g_used - 2] = ' ';
    g_used--;
    put_two_digits(tm.tm_hour, ':');
    put_two_digits(tm.tm_min, ':');
    put_two_digits(tm.tm_sec, '|');
}

void put_row(std::string_view name, std::string_view type, const struct stat &file) {
    for (const std::string_view &text :
         {g_names[PROFILE], g_names[PROJECT], g_names[SUB_PROJECT], name, owner(file.st_uid),
          group(file.st_gid), permission(file)}) {
        put(text);
        put("|");
    }
    put_date(file.st_mtime);
    put(type);
    put("\n");
}

// --- tags ----------------------------------------------------------------------------------------

#if defined(WITH_RAPIDJSON)

bool holds_word(char *text) {
    rapidjson::Document document;
    document.ParseInsitu(text);
    if (document.HasParseError() || !document.IsObject()) {
        return false;
    }
    const auto scenario = document.FindMember("scenario");
    if (scenario == document.MemberEnd() || !scenario->value.IsObject()) {
        return false;
    }
    const auto tags = scenario->value.FindMember("TAGS");
    if (tags == scenario->value.MemberEnd() || !tags->value.IsObject()) {
        return false;
    }
    const auto lists = tags->value.FindMember("_G");
    if (lists == tags->value.MemberEnd() || !lists->value.IsArray() || lists->value.Empty() ||
        !lists->value[0].IsArray()) {
        return false;
    }
    for (const auto &tag : lists->value[0].GetArray()) {
        if (tag.IsString() && strcasestr(tag.GetString(), g_word) != nullptr) {
            return true;
        }
    }
    return false;
}

#elif defined(WITH_CJSON)

bool holds_word(char *text) {
    cJSON *document = cJSON_Parse(text);
    const cJSON *scenario = cJSON_GetObjectItemCaseSensitive(document, "scenario");
    const cJSON *tags = cJSON_GetObjectItemCaseSensitive(scenario, "TAGS");
    const cJSON *lists = cJSON_GetObjectItemCaseSensitive(tags, "_G");
    bool found = false;
    const cJSON *tag;
    cJSON_ArrayForEach(tag, cJSON_GetArrayItem(lists, 0)) {
        found = found || (cJSON_IsString(tag) && strcasestr(tag->valuestring, g_word) != nullptr);
    }
    cJSON_Delete(document);
    return found;
}

#else

// Either case of the first letter, then the rest: fast for a word that is rare.
bool holds_word(char *text) {
    return strcasestr(text, g_word) != nullptr;
}

#endif

bool is_wanted(int dir, const char *name) {
    if (g_word == nullptr) {
        return true;
    }
    const int fd = openat(dir, name, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const ssize_t got = read(fd, g_file, FILE_BUFFER - 1);
    close(fd);
    g_file[got < 0 ? 0 : got] = '\0';
    return holds_word(g_file);
}

// --- walk ----------------------------------------------------------------------------------------

const dirent64 *entry_at(std::span<const char> entries, size_t at) {
    return reinterpret_cast<const dirent64 *>(entries.data() + at);
}

bool holds_directory(std::span<const char> entries, std::string_view name) {
    const size_t least_size = offsetof(dirent64, d_name) + name.size() + 1;
    for (size_t at = 0; at < entries.size();) {
        const dirent64 *entry = entry_at(entries, at);
        at += entry->d_reclen;
        if (entry->d_type == DT_DIR && entry->d_reclen >= least_size &&
            entry->d_name[name.size()] == '\0' &&
            memcmp(entry->d_name, name.data(), name.size()) == 0) {
            return true;
        }
    }
    return false;
}

void flat_scenario(int dir, const char *name, std::span<const char> entries) {
    std::string_view stem = name;
    struct stat file;
    if (!stem.ends_with(".conf")) {
        return;
    }
    stem.remove_suffix(5);
    if (!holds_directory(entries, stem) && fstatat(dir, name, &file, 0) == 0 &&
        is_wanted(dir, name)) {
        put_row(stem, "CONF", file);
    }
}

// A scenario directory: its first scenario file decides, unless it holds the functional marker.
struct inside {
    std::string_view type; // of the first scenario file; empty: none so far
    char name[16];
    bool is_functional;
};

void note_inside(inside *found, const char *name) {
    const std::string_view type = strcmp(name, "scenario.json") == 0   ? "JSON"
                                  : strcmp(name, "scenario.yaml") == 0 ? "YAML"
                                  : strcmp(name, "scenario.jmx") == 0  ? "JMX"
                                  : strcmp(name, "scenario.wzrd") == 0 ? "WZRD"
                                                                       : "";
    if (found->type.empty() && !type.empty()) {
        found->type = type;
        strcpy(found->name, name);
    }
    found->is_functional = found->is_functional || strcmp(name, ".functional") == 0;
}

void scenario_directory(int dir, const inside &found) {
    struct stat file;
    if (!found.type.empty() && !found.is_functional && fstatat(dir, found.name, &file, 0) == 0 &&
        is_wanted(dir, found.name)) {
        put_row(g_names[ENTRY], found.type, file);
    }
}

bool is_entered(int depth, const char *name) {
    return depth == MARANTH     ? strcmp(name, "maranth") == 0
           : depth == SCENARIOS ? strcmp(name, "scenarios") == 0
                                : depth < INSIDE;
}

void walk(int parent, const char *name, int depth);

void visit(int dir, const dirent64 *entry, std::span<const char> entries, int depth,
           inside *found) {
    const char *name = entry->d_name;
    if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) {
        return;
    }
    if (depth == INSIDE) {
        note_inside(found, name);
    } else if (entry->d_type == DT_DIR && is_entered(depth, name)) {
        g_names[depth] = name;
        walk(dir, name, depth + 1);
    } else if (entry->d_type == DT_REG && depth == ENTRY) {
        flat_scenario(dir, name, entries);
    }
}

// Go through a directory whose entries are at this depth.
void walk(int parent, const char *name, int depth) {
    const int dir = openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) {
        return;
    }
    char *buffer = g_entries[depth - 1];
    inside found = {};
    for (ssize_t got; (got = getdents64(dir, buffer, DIRECTORY_BUFFER)) > 0;) {
        const std::span<const char> entries(buffer, static_cast<size_t>(got));
        for (size_t at = 0; at < entries.size();) {
            const dirent64 *entry = entry_at(entries, at);
            at += entry->d_reclen;
            visit(dir, entry, entries, depth, &found);
        }
    }
    scenario_directory(dir, found);
    close(dir);
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2 || chdir(argv[1]) != 0) {
        fprintf(stderr, "usage: %s WORK_DIR [WORD]\n", argv[0]);
        return 2;
    }
    g_word = argc > 2 ? argv[2] : nullptr;
    put("WorkProfile|Project|Subproject|Scenario|Owner|Group|Permission|Modification Date|Type\n");
    walk(AT_FDCWD, "workspace", WORKSPACE);
    flush();
    return 0;
}
