// SPDX-License-Identifier: Apache-2.0
// A recorded path is cut into its components, which are counted from 1 and mean what the layout of
// a work directory of exactly three components gives them:
//
//     /home/maranth/work/workspace/<workspace>/<profile>/maranth/<project>/<sub>/scenarios/<entry>
//      1    2       3    4         5           6         7       8         9     10        11
//
// with the file inside a scenario directory as the twelfth. Paths of any other count are dropped,
// so that a work directory of another depth lists nothing; installations count on it.
#include "scenario_list.h"

#include "id_names.h"
#include "output.h"
#include "path_list.h"
#include "scenario_walk.h"
#include "selection.h"
#include "text_part.h"

#include <array>
#include <cstring>
#include <ctime>

namespace {

enum component {
    WORKSPACE = 4, // indexes, so one less than the number
    PROFILE = 5,
    PROJECT = 7,
    SUB_PROJECT = 8,
    ENTRY = 10,
    FILE_INSIDE = 11
};
constexpr size_t FLAT_COUNT = 11;
constexpr size_t DIRECTORY_COUNT = 12;
constexpr size_t MAX_COMPONENTS = 13;
constexpr std::string_view CONF_SUFFIX = ".conf";

// --- path components -----------------------------------------------------------------------------

struct components {
    std::array<std::string_view, MAX_COMPONENTS> at;
    size_t count;
    size_t shared_count; // components of the part that neighbours share
};

// Cut path[from..to) into components behind those there are.
void split(components *parts, std::string_view path, size_t from, size_t to) {
    while (from < to && parts->count < MAX_COMPONENTS) {
        size_t end = path.find('/', from);
        end = end < to ? end : to;
        if (end > from) {
            parts->at[parts->count++] = text_part(path, from, end);
        }
        from = end + 1;
    }
}

// Cut the reader's path; what it shares with the path before is cut already.
void split_path(components *parts, const path_reader &reader) {
    const std::string_view path = {reader.path, reader.length};
    if (reader.shared == 0) {
        parts->count = 0;
        split(parts, path, 0, reader.next_shared);
        parts->shared_count = parts->count;
    }
    parts->count = parts->shared_count;
    split(parts, path, reader.next_shared, path.size());
}

// --- scenario keys -------------------------------------------------------------------------------

// Project, sub-project and entry, cut at the first scenario suffix wherever in the text it stands.
// Workspace and profile are not part of it.
struct scenario_key {
    size_t length;
    char text[MAX_PATH_LENGTH + 1];

    std::string_view view() const { return {text, length}; }
};

void append(scenario_key *key, std::string_view text) {
    memcpy(key->text + key->length, text.data(), text.size());
    key->length += text.size();
}

size_t find_suffix(std::string_view text) {
    if (text.find('.') == std::string_view::npos) {
        return text.size();
    }
    for (const std::string_view suffix : {CONF_SUFFIX, std::string_view{".jmx"},
                                          std::string_view{".yaml"}, std::string_view{".wzrd"}}) {
        const size_t at = text.find(suffix);
        if (at != std::string_view::npos) {
            return at;
        }
    }
    return text.size();
}

void set_key(scenario_key *key, const components &parts) {
    key->length = 0;
    append(key, parts.at[PROJECT]);
    append(key, "/");
    append(key, parts.at[SUB_PROJECT]);
    append(key, "/");
    append(key, parts.at[ENTRY]);
    key->length = find_suffix(key->view());
}

// --- types ---------------------------------------------------------------------------------------

constexpr std::string_view CONF = "CONF";
constexpr std::string_view JSON = "JSON";
constexpr std::string_view YAML = "YAML";
constexpr std::string_view JMX = "JMX";
constexpr std::string_view WZRD = "WZRD";

// The type that the file inside a scenario directory gives; empty for any other name.
std::string_view type_of_file(std::string_view name) {
    constexpr std::string_view stem = "scenario.";
    if (!name.starts_with(stem)) {
        return {};
    }
    const std::string_view suffix = text_part(name, stem.size(), name.size());
    return suffix == "yaml"   ? YAML
           : suffix == "wzrd" ? WZRD
           : suffix == "json" ? JSON
           : suffix == "jmx"  ? JMX
           : suffix == "conf" ? CONF
                              : std::string_view{};
}

bool holds(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

// The entry's own name has the last word.
std::string_view type_by_entry(std::string_view entry, std::string_view type) {
    return holds(entry, ".jmx")    ? JMX
           : holds(entry, ".yaml") ? YAML
           : holds(entry, ".wzrd") ? WZRD
                                   : type;
}

// The piece of a name between dots that begins at or behind `from`; empty behind the last one.
std::string_view dotted_piece(std::string_view name, size_t from) {
    const size_t begin = name.find_first_not_of('.', from);
    if (begin == std::string_view::npos) {
        return {};
    }
    const size_t end = name.find('.', begin);
    return text_part(name, begin, end == std::string_view::npos ? name.size() : end);
}

// Whether a flat name is NAME.conf, perhaps with more behind it. A name with a dot of its own is
// not: such scenarios have never been shown, and teams park scenarios that way.
bool is_flat_name(std::string_view name) {
    const std::string_view stem = dotted_piece(name, 0);
    const size_t behind = static_cast<size_t>(stem.data() + stem.size() - name.data());
    return !stem.empty() && dotted_piece(name, behind) == "conf";
}

// --- attributes ----------------------------------------------------------------------------------

// What the calling user may do with a file: three characters. A member of the file's group writes
// by the owner's write bit, not the group's: the suite's own commands change files in the owner's
// name, and the column tells what they will do.
std::string_view get_scenario_permission(uid_t user, gid_t group, mode_t mode) {
    if (usr_id == 0) {
        return "RWD";
    }
    mode_t read = S_IROTH;
    mode_t write = S_IWOTH;
    if (user == usr_id) {
        read = S_IRUSR;
        write = S_IWUSR;
    } else if (group == usr_primary_grp_id || group == usr_secondry_grp_id) {
        read = S_IRGRP;
        write = S_IWUSR;
    }
    if ((mode & read) != 0) {
        return (mode & write) != 0 ? "RWD" : "R--";
    }
    return (mode & write) != 0 ? "-WD" : "---";
}

void out_two_digits(int number, char separator) {
    const char text[] = {static_cast<char>('0' + number / 10), static_cast<char>('0' + number % 10),
                         separator};
    out_text({text, sizeof text});
}

// Local time as month/day/year hour:minute:second, closed by a separator.
void get_scenario_modification_time(time_t modification_time, char separator) {
    struct tm tm;
    long long year = 0;
    if (localtime_r(&modification_time, &tm) == nullptr) {
        out_text("00/00/0000 00:00:00");
        out_text({&separator, 1});
        return;
    }
    year = 1900LL + tm.tm_year;
    out_two_digits(tm.tm_mon + 1, '/');
    out_two_digits(tm.tm_mday, '/');
    out_number(year);
    out_text(" ");
    out_two_digits(tm.tm_hour, ':');
    out_two_digits(tm.tm_min, ':');
    out_two_digits(tm.tm_sec, separator);
}

// For a file that could not be examined when it was found: try again, and then the flat file that
// a scenario directory may have become. `path` is changed to the name tried last; it has room for
// the suffix.
bool find_attributes(char *path, file_attributes *file) {
    struct stat sb;
    if (stat(path, &sb) != 0) {
        char *inside = strstr(path, "/scenario.conf");
        memcpy(inside != nullptr ? inside : path + strlen(path), CONF_SUFFIX.data(),
               CONF_SUFFIX.size() + 1);
        if (stat(path, &sb) != 0) {
            return false;
        }
    }
    *file = attributes_of(&sb);
    return true;
}

// Print owner, group, permission and date, each behind a separator, and count the row. A file that
// is gone leaves a short row, which is not counted.
void get_scenario_stats(const path_reader &reader) {
    file_attributes file = reader.attributes;
    if (file.mode == 0) {
        char path[sizeof reader.path + CONF_SUFFIX.size()];
        memcpy(path, reader.path, reader.length + 1);
        if (!find_attributes(path, &file)) {
            report_error("Error in getting stat of dir %s\n", path);
            out_text("|");
            return;
        }
    }
    out_name(get_scenario_owner(file.uid));
    out_text("|");
    out_name(get_scenario_group(file.gid));
    out_text("|");
    out_text(get_scenario_permission(file.uid, file.gid, file.mode));
    out_text("|");
    get_scenario_modification_time(static_cast<time_t>(file.mtime), '|');
    total_filtered_records++;
}

// --- rows ----------------------------------------------------------------------------------------

// The key of the path at hand and that of the last listed one, which repetitions are known by.
struct table {
    scenario_key keys[2];
    int current;
    bool has_previous; // a path has been listed

    scenario_key &key() { return keys[current]; }
    const scenario_key &previous_key() const { return keys[1 - current]; }
};

bool is_profile_shown(const components &parts) {
    const std::string_view profile = parts.at[PROFILE];
    if (w_set != 0 && profile == VXLB_DEFAULT_PROFILE) {
        return false;
    }
    return all == 0 || profile != "system" || parts.at[WORKSPACE] != VXLB_DEFAULT_WORKSPACE;
}

std::string_view shown_profile(std::string_view profile) {
    return profile == "system" || profile == "repo" ? VXLB_DEFAULT_PROFILE : profile;
}

void print_row(const components &parts, std::string_view name, std::string_view type,
               const path_reader &reader) {
    out_name(shown_profile(parts.at[PROFILE]));
    out_text("|");
    out_name(parts.at[PROJECT]);
    out_text("|");
    out_name(parts.at[SUB_PROJECT]);
    out_text("|");
    out_name(name);
    out_text("|");
    get_scenario_stats(reader);
    out_text(type);
    out_text("\n");
}

void print_scenario(table *rows, const components &parts, const path_reader &reader) {
    if ((parts.count != FLAT_COUNT && parts.count != DIRECTORY_COUNT) || !is_profile_shown(parts)) {
        return;
    }
    std::string_view name = parts.at[ENTRY];
    set_key(&rows->key(), parts);
    const bool is_repeated =
        rows->has_previous && rows->key().view() == rows->previous_key().view();
    if (is_repeated || name.starts_with('.')) {
        return;
    }
    std::string_view type;
    if (parts.count == DIRECTORY_COUNT) {
        type = type_of_file(parts.at[FILE_INSIDE]);
        if (type.empty()) {
            return;
        }
    }
    // Remembered also when a dotted flat name is dropped next: what follows it under the same key
    // is a repetition all the same.
    rows->current = 1 - rows->current;
    rows->has_previous = true;
    type = type_by_entry(name, type);
    if (parts.count == FLAT_COUNT) {
        if (!is_flat_name(name)) {
            return;
        }
        type = CONF;
        name.remove_suffix(CONF_SUFFIX.size());
    }
    print_row(parts, name, type, reader);
}

} // namespace

void print_header() {
    out_text("WorkProfile|Project|Subproject|Scenario|Owner|Group|Permission|Modification Date|Type"
             "\n");
    out_show_on_terminal();
}

void print_scenarios() {
    static table rows;
    static components parts;
    static path_reader reader;
    reader.list = &scen_list;
    while (path_reader_next(&reader)) {
        split_path(&parts, reader);
        print_scenario(&rows, parts, reader);
    }
    if (gflag != 0) {
        out_text("Total Filtered Records = ");
        out_number(total_filtered_records);
        out_text(", Total Records = ");
        out_number(total_records);
        out_text("\n");
    }
}
