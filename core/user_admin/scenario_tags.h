// SPDX-License-Identifier: Apache-2.0
// A scenario file's tags against the tag words of -T.
#pragma once

#include "tree_walk.h"

#include <sys/stat.h>

#include <string_view>

// Whether a tag of the scenario file holds one of the tag words, ignoring case; true without tag
// words, and nothing is opened then. file: what stat says of the entry, mode 0 for nothing. A file
// that the parser refuses to open is reported; one without tags, or not JSON, just does not match.
bool is_tag_present(const tree_entry &entry, const struct stat &file);

// Decode a tag as the parser hands it over: a backslash or a zero byte, "u" (behind a backslash
// only) and four hexadecimal digits become the one byte they stand for, or nothing where that is
// not from 1 to 127; other zero bytes are dropped. dst: tag.size() + 1 bytes, zero-terminated.
// Returns the length.
size_t decode_unicode(std::string_view tag, char *dst);
