// SPDX-License-Identifier: Apache-2.0
// One chained hash table each for users and groups: a tree has few owners as a rule, but nothing
// keeps it from having a hundred thousand.
#include "id_names.h"

#include "user_access.h"

#include <grp.h>
#include <pwd.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr const char *UNKNOWN_NAME = "UNKNOWN";
constexpr size_t BUCKETS = 1024;

struct known_name {
    known_name *next;
    const char *name; // owned
    id_t id;
};

using name_table = known_name *[BUCKETS];

name_table g_users;
name_table g_groups;

const known_name *find(const name_table &names, id_t id) {
    const known_name *each = names[id % BUCKETS];
    while (each != nullptr && each->id != id) {
        each = each->next;
    }
    return each;
}

std::string_view keep(name_table &names, id_t id, const char *name) {
    auto *added = static_cast<known_name *>(malloc(sizeof(known_name)));
    const char *copy = strdup(name);
    if (added == nullptr || copy == nullptr) {
        die_of_memory();
    }
    *added = {names[id % BUCKETS], copy, id};
    names[id % BUCKETS] = added;
    return added->name; // cppcheck-suppress memleak // the table owns the copy
}

} // namespace

std::string_view get_scenario_owner(uid_t user_id) {
    if (const known_name *known = find(g_users, user_id)) {
        return known->name;
    }
    const struct passwd *user = getpwuid(user_id);
    return keep(g_users, user_id, user == nullptr ? UNKNOWN_NAME : user->pw_name);
}

std::string_view get_scenario_group(gid_t group_id) {
    if (const known_name *known = find(g_groups, group_id)) {
        return known->name;
    }
    const struct group *group = getgrgid(group_id);
    return keep(g_groups, group_id, group == nullptr ? UNKNOWN_NAME : group->gr_name);
}
